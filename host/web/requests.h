// What a request's body asks for, read strictly. No sockets here.
#pragma once

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "run/front.h"

namespace host::web {

/// Thrown for a request that cannot be answered.
class BadRequest : public std::runtime_error {
 public:
  BadRequest(int status, const std::string& sentence) : std::runtime_error(sentence), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// The body as a JSON object. @throws BadRequest (400)
nlohmann::json objectOf(const std::string& body);

/// {"name": "...", "box": [x, y, w, h] or "point": [x, y], "frame": N}: full-frame pixels; without a name the first
/// target, without a frame the newest. @throws BadRequest (422) naming the member
FrontCommand startOf(const nlohmann::json& body);

/// {"name": "..."}; without a name all targets. @throws BadRequest (422)
FrontCommand stopOf(const nlohmann::json& body);

/// The point and the frame of a proposal. @throws BadRequest (422)
struct ProposalWish {
  cv::Point point;
  std::optional<long> frame;
};
ProposalWish proposalOf(const nlohmann::json& body);

/// A whole number of a query. @throws BadRequest (400) naming it
long numberOf(const std::string& name, const std::string& text, long least, long most);

}  // namespace host::web
