#include "web/web_server.h"

#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <future>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <thread>

#include "base/embedded.h"
#include "base/host_error.h"
#include "picture/annotate.h"
#include "picture/box_proposal.h"
#include "web/connection_pool.h"
#include "web/connection_watch.h"
#include "web/requests.h"
#include "web/web_texts.h"

namespace host::web {
namespace {

using Json = nlohmann::ordered_json;
using httplib::Request;
using httplib::Response;
using std::chrono::milliseconds;

constexpr std::size_t kMostConnections = 64;
constexpr int kMostWaiting = 40;  // requests that wait for a picture or stream; the other threads stay for the rest
constexpr int kMostProposals = 2;
constexpr std::size_t kLargestBody = std::size_t{64} << 10;
constexpr milliseconds kUsualWait{5000};
constexpr long kLongestWait_ms = 20000;
constexpr milliseconds kLongestAnswer{3000};  // of the run, to a command
constexpr milliseconds kStreamStep{1000};
constexpr int kSendBuffer = 256 * 1024;  // what lies in it is a picture that gets old

constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// A file of the page.
struct PageFile {
  const char* path;
  const char* type;
  const char* const* text;
};

constexpr PageFile kPageFiles[] = {
    {"/", "text/html; charset=utf-8", &kWebPage},
    {"/page.css", "text/css; charset=utf-8", &kWebStyle},
    {"/icon.svg", "image/svg+xml", &kWebIcon},
    {"/chart.js", "text/javascript; charset=utf-8", &kChartLibrary},
    {"/main.mjs", "text/javascript; charset=utf-8", &kWebMain},
    {"/api.mjs", "text/javascript; charset=utf-8", &kWebApi},
    {"/geometry.mjs", "text/javascript; charset=utf-8", &kWebGeometry},
    {"/overlay.mjs", "text/javascript; charset=utf-8", &kWebOverlay},
    {"/pick.mjs", "text/javascript; charset=utf-8", &kWebPick},
    {"/timeline.mjs", "text/javascript; charset=utf-8", &kWebTimeline},
    {"/save.mjs", "text/javascript; charset=utf-8", &kWebSave},
    {"/settings.mjs", "text/javascript; charset=utf-8", &kWebSettings},
    {"/openapi.json", "application/json", &kWebOpenApi},
};

void answer(Response& response, const Json& json, int status = 200) {
  response.status = status;
  response.set_content(asciiText(json), "application/json");
}

void refuse(Response& response, int status, const std::string& why) {
  answer(response, Json{{"error", why}}, status);
}

/// The picture with what is known about it inside, as a JPEG's comment behind its first mark.
std::string withComment(const std::string& jpeg, const std::string& comment) {
  constexpr std::size_t kLongest = 65533;
  if (comment.size() > kLongest || jpeg.size() < 2) return jpeg;
  const std::size_t length = comment.size() + 2;
  std::string all;
  all.reserve(jpeg.size() + comment.size() + 4);
  all.append(jpeg, 0, 2);
  all += {static_cast<char>(0xFF), static_cast<char>(0xFE), static_cast<char>(length >> 8U),
          static_cast<char>(length & 0xFFU)};
  all += comment;
  all.append(jpeg, 2, std::string::npos);
  return all;
}

Json boxJson(const cv::Rect& box) {
  return Json::array({box.x, box.y, box.width, box.height});
}

}  // namespace

class WebServer::Running {
 public:
  Running(const WebOptions& options, WebParts& parts)
      : parts_(parts), access_(options.address, options.token, options.names) {
    server_.new_task_queue = [] { return new ConnectionPool(kMostConnections); };
    server_.set_keep_alive_max_count(1000000);
    server_.set_keep_alive_timeout(5);
    server_.set_read_timeout(5);
    server_.set_write_timeout(5);
    server_.set_payload_max_length(kLargestBody);
    server_.set_tcp_nodelay(true);
    server_.set_socket_options([](auto socket) {
      // Not the library's own choice, which lets a second program listen on the same port.
      const int on = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
      ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
      const int silence_s = 5;  // who connects and says nothing gets no thread
      ::setsockopt(socket, IPPROTO_TCP, TCP_DEFER_ACCEPT, &silence_s, sizeof silence_s);
    });
    server_.set_default_headers({{"Content-Security-Policy", kPolicy},
                                 {"X-Content-Type-Options", "nosniff"},
                                 {"X-Frame-Options", "DENY"},
                                 {"Referrer-Policy", "no-referrer"},
                                 {"Cross-Origin-Opener-Policy", "same-origin"},
                                 {"Cross-Origin-Resource-Policy", "same-origin"},
                                 {"Permissions-Policy", "camera=(), microphone=(), geolocation=()"},
                                 {"Cache-Control", "no-store"}});
    server_.set_pre_routing_handler(
        [this](const Request& request, Response& response) { return admit_(request, response); });
    server_.set_error_handler([](const Request&, Response& response) {
      if (response.body.empty()) refuse(response, response.status, "this cannot be answered");
    });
    server_.set_exception_handler([](const Request&, Response& response, const std::exception_ptr& thrown) {
      try {
        std::rethrow_exception(thrown);
      } catch (const BadRequest& e) {
        refuse(response, e.status(), e.what());
      } catch (...) {
        refuse(response, 500, "this went wrong here");
      }
    });
    server_.set_logger(
        [this](const Request& request, const Response&) { watch_.answered(request.remote_addr, request.remote_port); });
    addPage_();
    addPictures_();
    addApi_();
    port_ = options.address.port;
    if (port_ == 0) {
      port_ = server_.bind_to_any_port(options.address.host);
    } else if (!server_.bind_to_port(options.address.host, port_)) {
      port_ = -1;
    }
    if (port_ <= 0) {
      throw HostError(ExitCode::Usage,
                      "--http " + addressText(options.address.host, options.address.port) +
                          ": cannot listen there; is the port taken, or the address not this machine's?");
    }
    watch_.begin(port_);
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }

  ~Running() {
    parts_.frames.close();
    parts_.records.close();
    parts_.commands.close();
    // stop() before it runs would be forgotten; one that could not run has ended by itself.
    for (int i = 0; i < 2000 && !server_.is_running(); ++i) std::this_thread::sleep_for(milliseconds(1));
    server_.stop();
    watch_.end();  // who keeps a connection for later is not waited for
    thread_.join();
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  int port() const { return port_; }

 private:
  /// One of the few places that may wait for long; false when none is free, and the refusal is written.
  class Seat {
   public:
    Seat(std::atomic<int>& taken, int most) : taken_(taken), got_(++taken <= most) {}
    ~Seat() { --taken_; }
    Seat(const Seat&) = delete;
    Seat& operator=(const Seat&) = delete;
    bool got() const { return got_; }

   private:
    std::atomic<int>& taken_;
    bool got_;
  };

  httplib::Server::HandlerResponse admit_(const Request& request, Response& response) {
    using Verdict = httplib::Server::HandlerResponse;
    const bool stream = request.path == "/stream.mjpeg" || request.path == "/api/events" || request.path == "/api/clip";
    if (!watch_.asked(request.remote_addr, request.remote_port, stream)) {
      refuse(response, 400, "this was part of a request that was refused");
      return Verdict::Handled;
    }
    Asked asked;
    asked.peer = request.remote_addr;
    asked.method = request.method;
    asked.host = request.get_header_value("Host");
    asked.origin = request.get_header_value("Origin");
    asked.authorization = request.get_header_value("Authorization");
    asked.marked = request.has_header(kMarkHeader);
    AccessVerdict verdict = access_.judge(asked, secondsNow());
    if (verdict.status == 200) verdict = bodyVerdict_(request);
    if (verdict.status == 200) return Verdict::Unhandled;
    refuse(response, verdict.status, verdict.why);
    // The body stays unread, and could itself look like a request, with whatever headers its sender likes.
    if (hasBody_(request)) watch_.spoil(request.remote_addr, request.remote_port);
    if (verdict.status == 401) response.set_header("WWW-Authenticate", "Basic realm=\"csrt-track\", charset=\"UTF-8\"");
    if (verdict.status == 429 || verdict.status == 503) response.set_header("Retry-After", "1");
    return Verdict::Handled;
  }

  static bool hasBody_(const Request& request) {
    return request.has_header("Transfer-Encoding") ||
           (request.has_header("Content-Length") && request.get_header_value("Content-Length") != "0") ||
           (request.method != "GET" && request.method != "HEAD" && !request.has_header("Content-Length"));
  }

  /// The library has no limit for a body whose length is not said, nor for what a packed one unpacks to.
  static AccessVerdict bodyVerdict_(const Request& request) {
    const bool order = request.method != "GET" && request.method != "HEAD";
    if (!order) return hasBody_(request) ? AccessVerdict{400, "a question has no body"} : AccessVerdict{};
    if (request.method != "POST") return {405, "only GET, HEAD and POST are answered"};
    if (request.has_header("Transfer-Encoding") || request.has_header("Content-Encoding")) {
      return {415, "a body must be sent as it is, with its length"};
    }
    if (request.get_header_value_count("Content-Length") != 1) return {411, "the body's length is missing"};
    const std::string length = request.get_header_value("Content-Length");
    if (length.empty() || length.size() > 9 || length.find_first_not_of("0123456789") != std::string::npos) {
      return {413, "the body is too large"};
    }
    if (std::stoul(length) > kLargestBody) return {413, "the body is too large"};
    const std::string type = request.get_header_value("Content-Type");
    if (type.compare(0, 16, "application/json") != 0) return {415, "the body must be application/json"};
    return {};
  }

  void addPage_() {
    for (const PageFile& file : kPageFiles) {
      server_.Get(file.path,
                  [&file](const Request&, Response& response) { response.set_content(*file.text, file.type); });
    }
  }

  void addPictures_() {
    server_.Get("/frame", [this](const Request& request, Response& response) { frame_(request, response); });
    server_.Get("/stream.mjpeg", [this](const Request&, Response& response) { stream_(response); });
    server_.Get("/api/events", [this](const Request&, Response& response) { events_(response); });
  }

  void addApi_() {
    server_.Get("/api/state",
                [this](const Request&, Response& response) { answer(response, parts_.view.state(secondsNow())); });
    server_.Get("/api/targets",
                [this](const Request&, Response& response) { answer(response, parts_.view.targets(secondsNow())); });
    server_.Get("/api/timeline", [this](const Request& request, Response& response) {
      const std::string after = request.has_param("after") ? request.get_param_value("after") : "0";
      char* end = nullptr;
      const double after_s = std::strtod(after.c_str(), &end);
      if (end == after.c_str() || *end != '\0') throw BadRequest(400, "'after' must be a number of seconds");
      answer(response, parts_.view.timeline(after_s, secondsNow()));
    });
    server_.Get("/api/config", [this](const Request&, Response& response) { answer(response, parts_.config.json()); });
    server_.Get("/api/config/file", [this](const Request&, Response& response) {
      response.set_header("Content-Disposition", "attachment; filename=\"csrt-config.json\"");
      response.set_content(parts_.config.download(), "application/json");
    });
    server_.Get("/metrics", [this](const Request&, Response& response) {
      response.set_content(parts_.view.metrics(secondsNow(), parts_.frames.encoded(), waiting_),
                           "text/plain; version=0.0.4; charset=utf-8");
    });
    server_.Get("/api/still", [this](const Request& request, Response& response) { still_(request, response); });
    server_.Get("/api/clip", [this](const Request&, Response& response) { clip_(response); });
    server_.Get("/api/run", [this](const Request&, Response& response) { answer(response, parts_.keeper.json()); });
    server_.Post("/api/run", [this](const Request& request, Response& response) { keepRun_(request, response); });
    server_.Post("/api/targets", [this](const Request& request, Response& response) {
      command_(startOf(objectOf(request.body)), response);
    });
    server_.Post("/api/stop", [this](const Request& request, Response& response) {
      command_(stopOf(objectOf(request.body)), response);
    });
    server_.Post("/api/propose", [this](const Request& request, Response& response) { propose_(request, response); });
    server_.Post("/api/config", [this](const Request& request, Response& response) { configure_(request, response); });
  }

  void frame_(const Request& request, Response& response) {
    const Seat seat(waiting_, kMostWaiting);
    if (!seat.got()) return refuse(response, 503, "too many viewers; try again");
    const long after =
        request.has_param("after") ? numberOf("after", request.get_param_value("after"), -1, kMostNumber) : -1;
    const milliseconds limit =
        request.has_param("wait_ms")
            ? milliseconds(numberOf("wait_ms", request.get_param_value("wait_ms"), 0, kLongestWait_ms))
            : kUsualWait;
    const ShownFrame shown = parts_.frames.next(after, limit);
    if (!shown.jpeg) {
      response.set_content(shown.state.empty() ? "{}" : shown.state, "application/json");
      return;
    }
    response.set_header("Csrt-Frame", std::to_string(shown.index));
    response.set_content(withComment(*shown.jpeg, shown.state), "image/jpeg");
  }

  void stream_(Response& response) {
    auto seat = std::make_shared<Seat>(waiting_, kMostWaiting);
    if (!seat->got()) return refuse(response, 503, "too many viewers; try again");
    const auto last = std::make_shared<long>(-1);
    response.set_content_provider(
        "multipart/x-mixed-replace; boundary=frame", [this, last, seat](std::size_t, httplib::DataSink& sink) {
          const ShownFrame shown = parts_.frames.next(*last, kStreamStep);
          if (parts_.frames.closed() || !sink.is_writable()) return false;
          if (!shown.jpeg) return true;
          *last = shown.index;
          const std::string head =
              "--frame\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(shown.jpeg->size()) +
              "\r\nCsrt-Frame: " + std::to_string(shown.index) + "\r\n\r\n";
          return sink.write(head.data(), head.size()) && sink.write(shown.jpeg->data(), shown.jpeg->size()) &&
                 sink.write("\r\n", 2);
        });
  }

  void events_(Response& response) {
    auto seat = std::make_shared<Seat>(waiting_, kMostWaiting);
    if (!seat->got()) return refuse(response, 503, "too many listeners; try again");
    const auto last = std::make_shared<long>(parts_.records.newest());
    response.set_header("X-Accel-Buffering", "no");  // for a reverse proxy: pass on at once
    response.set_chunked_content_provider(
        "text/event-stream", [this, last, seat](std::size_t, httplib::DataSink& sink) {
          long missed = 0;
          const std::vector<std::string> lines = parts_.records.after(*last, missed, kStreamStep);
          if (parts_.records.closed() || !sink.is_writable()) return false;
          std::string text;
          if (missed > 0) text += "event: missed\ndata: " + std::to_string(missed) + "\n\n";
          for (const std::string& line : lines) text += "event: record\ndata: " + line + "\n\n";
          if (lines.empty()) text = ": nothing new\n\n";
          return sink.write(text.data(), text.size());
        });
  }

  static void attach(Response& response, const std::string& name) {
    response.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
  }

  void still_(const Request& request, Response& response) {
    const Seat seat(saving_, 1);
    if (!seat.got()) return refuse(response, 429, "another one is being saved");
    const long newest = parts_.frames.range().second;
    const long index =
        request.has_param("frame") ? numberOf("frame", request.get_param_value("frame"), 0, kMostNumber) : newest;
    const cv::Mat picture = parts_.frames.picture(index);
    if (picture.empty()) return refuse(response, 409, "that frame is no longer kept, or there is none yet");
    const auto records = parts_.frames.records(index);
    const bool drawn = request.has_param("drawn") && request.get_param_value("drawn") == "1" && records;
    std::vector<unsigned char> bytes;
    cv::imencode(".png", drawn ? Annotator().draw(picture, *records) : picture, bytes);
    attach(response, "csrt-frame-" + std::to_string(index) + ".png");
    response.set_content(std::string(bytes.begin(), bytes.end()), "image/png");
  }

  void clip_(Response& response) {
    const Seat seat(saving_, 1);
    if (!seat.got()) return refuse(response, 429, "another one is being saved");
    const std::vector<WatchedFrame> frames = parts_.frames.watched();
    if (frames.empty()) return refuse(response, 409, "nobody has watched within the last minute");
    attach(response,
           "csrt-frames-" + std::to_string(frames.front().index) + "-" + std::to_string(frames.back().index) + ".mp4");
    response.set_content(clipOf(frames), "video/mp4");
  }

  void keepRun_(const Request& request, Response& response) {
    const nlohmann::json body = objectOf(request.body);
    if (!body.contains("keep") || !body["keep"].is_boolean()) throw BadRequest(422, "'keep' must be true or false");
    if (!parts_.keeper.canSave()) return refuse(response, 409, "no folder for runs was given (--http-save)");
    if (!body["keep"].get<bool>()) {
      parts_.keeper.finish("a person ended it");
    } else if (!parts_.keeper.tryArm()) {
      return refuse(response, 409, "a run is being saved already");
    }
    answer(response, parts_.keeper.json());
  }

  /// Asks the run. Nothing when it did not answer in time or is over; the refusal is then written.
  std::optional<FrontAnswer> ask_(FrontCommand command, Response& response) {
    std::optional<std::future<FrontAnswer>> promised = parts_.commands.ask(std::move(command));
    if (!promised) {
      refuse(response, 503, "the run takes no commands now");
      return std::nullopt;
    }
    if (promised->wait_for(kLongestAnswer) != std::future_status::ready) {
      refuse(response, 504, "the run is busy; what was asked may still happen");
      return std::nullopt;
    }
    try {
      return promised->get();
    } catch (const std::future_error&) {
      refuse(response, 503, "the run is over");
      return std::nullopt;
    }
  }

  void command_(FrontCommand command, Response& response) {
    const std::optional<FrontAnswer> given = ask_(std::move(command), response);
    if (!given) return;
    Json json = {{"ok", given->done}};
    if (given->record) {
      const CallRecord& record = *given->record;
      json["name"] = record.target;
      json["frame"] = record.frame;
      json["started"] = record.started;
      if (record.givenBox) json["box"] = boxJson(*record.givenBox);
      json["caught_up"] = given->caughtUp;
    }
    if (!given->done) json["error"] = given->why;
    answer(response, json, given->done ? 200 : 409);
  }

  void propose_(const Request& request, Response& response) {
    const ProposalWish wish = proposalOf(objectOf(request.body));
    const Seat seat(proposing_, kMostProposals);
    if (!seat.got()) return refuse(response, 429, "two proposals are being made already");
    const cv::Mat picture = parts_.frames.picture(wish.frame);
    if (picture.empty()) {
      const auto [oldest, newest] = parts_.frames.range();
      return refuse(response, 409,
                    newest < oldest ? "there is no picture yet"
                                    : "that frame is no longer kept; kept are " + std::to_string(oldest) + " to " +
                                          std::to_string(newest));
    }
    const BoxProposal proposal = proposeBox(picture, wish.point);
    Json json = {{"box", boxJson(proposal.box)}, {"found", proposal.segmented}};
    if (wish.frame) json["frame"] = *wish.frame;
    answer(response, json);
  }

  void configure_(const Request& request, Response& response) {
    const nlohmann::json body = objectOf(request.body);
    const std::string preset =
        body.contains("preset") && body["preset"].is_string() ? body["preset"].get<std::string>() : "";
    const bool replaces = body.value("replace", nlohmann::json(false)) == true;
    if (preset.empty() == !body.contains("config")) throw BadRequest(422, "either 'config' or 'preset' must be given");
    const std::lock_guard<std::mutex> lock(configuring_);
    const ConfigChange change =
        preset.empty() ? parts_.config.check(body["config"].dump(), replaces) : parts_.config.checkPreset(preset);
    if (!change.faults.empty()) {
      Json faults = Json::array();
      for (const ConfigFault& fault : change.faults) faults.push_back({{"key", fault.key}, {"text", fault.text}});
      return answer(response, {{"ok", false}, {"error", change.faults.front().text}, {"faults", faults}}, 422);
    }
    if (!change.text.empty()) {
      FrontCommand command;
      command.kind = FrontCommand::Kind::Configure;
      command.configText = change.text;
      const std::optional<FrontAnswer> given = ask_(std::move(command), response);
      if (!given) return;
      if (!given->done) return refuse(response, 409, given->why);
    }
    parts_.config.commit(change.text, preset);
    if (!change.text.empty()) parts_.keeper.configured(parts_.config.download());
    parts_.view.configured();
    answer(response, {{"ok", true}, {"changed", change.text.empty() ? Json::object() : Json::parse(change.text)}});
  }

  static constexpr long kMostNumber = 1L << 53U;

  WebParts& parts_;
  Access access_;
  ConnectionWatch watch_;
  httplib::Server server_;
  int port_ = 0;
  std::atomic<int> waiting_{0};
  std::atomic<int> proposing_{0};
  std::atomic<int> saving_{0};
  std::mutex configuring_;
  std::thread thread_;
};

WebServer::WebServer(const WebOptions& options, WebParts& parts) {
  if (!options.address.loopback && options.token.empty()) {
    throw HostError(ExitCode::Usage, "--http " + addressText(options.address.host, options.address.port) +
                                         " can be reached from other machines: give a token with --http-token-file");
  }
  if (!options.token.empty() && options.token.size() < kShortestToken) {
    throw HostError(ExitCode::Usage,
                    "the token for --http is shorter than " + std::to_string(kShortestToken) + " characters");
  }
  running_ = std::make_unique<Running>(options, parts);
  url_ = "http://" + addressText(options.address.host, running_->port()) + "/";
}

WebServer::~WebServer() = default;

}  // namespace host::web
