// The page's server with a run behind it that the test plays.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "raw_http.h"
#include "support/host_program.h"
#include "web/web_server.h"

namespace host_test {

/// The server with a run that obeys: starts are accepted, stops succeed.
class ServedPageTest : public testing::Test {
 protected:
  void SetUp() override { serve(""); }
  void TearDown() override {
    over_ = true;
    run_.join();
  }

  void serve(const std::string& token) {
    if (run_.joinable()) TearDown();
    over_ = false;
    server_.reset();
    parts_ = std::make_unique<host::web::WebParts>("", "", R"({"properties":{}})", folder_.file("runs"));
    host::web::WebOptions options;
    options.address = host::web::listenAddressOf("127.0.0.1:0");
    options.token = token;
    server_ = std::make_unique<host::web::WebServer>(options, *parts_);
    port_ = std::atoi(server_->url().c_str() + std::string("http://127.0.0.1:").size());
    front_ = std::make_unique<host::web::WebFront>(*parts_);
    run_ = std::thread([this] {
      while (!over_) {
        for (host::FrontCommand& command : front_->takeCommands()) obey(command);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }

  void obey(const host::FrontCommand& command) {
    if (obeys_) {
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        last_ = command;
      }
      host::FrontAnswer answer;
      answer.done = true;
      if (command.kind == host::FrontCommand::Kind::Box) {
        answer.record.emplace();
        answer.record->target = command.target.empty() ? "target" : command.target;
        answer.record->isInit = answer.record->started = true;
        answer.record->givenBox = cv::Rect(command.box.x, command.box.y, command.box.width, command.box.height);
      }
      command.answer(answer);
    }
  }

  void show(long index, const std::vector<host::CallRecord>& records = {}) {
    host::SourceFrame frame;
    frame.index = index;
    frame.bgr = cv::Mat(36, 64, CV_8UC3, cv::Scalar::all(100));
    front_->frame(frame, records);
  }

  HttpAnswer asked(const std::string& path, const std::string& more = "") const { return get(port_, path, more); }
  HttpAnswer ordered(const std::string& path, const std::string& body) const { return post(port_, path, body); }
  static std::string error(const HttpAnswer& answer) {
    const nlohmann::json json = nlohmann::json::parse(answer.body, nullptr, false);
    return json.is_object() ? json.value("error", "") : "";
  }

  /// What the run was asked for last.
  host::FrontCommand last() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return last_;
  }

  TempFolder folder_;
  int port_ = 0;
  std::atomic<bool> obeys_{true};
  mutable std::mutex mutex_;
  host::FrontCommand last_;  // under mutex_
  std::atomic<bool> over_{false};
  std::unique_ptr<host::web::WebParts> parts_;
  std::unique_ptr<host::web::WebFront> front_;
  std::unique_ptr<host::web::WebServer> server_;
  std::thread run_;
};

}  // namespace host_test
