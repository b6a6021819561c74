#include "web/command_queue.h"

#include <memory>
#include <utility>

namespace host::web {

std::optional<std::future<FrontAnswer>> CommandQueue::ask(FrontCommand command) {
  const auto promise = std::make_shared<std::promise<FrontAnswer>>();
  std::future<FrontAnswer> answer = promise->get_future();
  command.answer = [promise](const FrontAnswer& given) { promise->set_value(given); };
  const std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || waiting_.size() >= kMostWaiting) return std::nullopt;
  waiting_.push_back(std::move(command));
  return answer;
}

std::vector<FrontCommand> CommandQueue::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(waiting_, {});
}

void CommandQueue::close() {
  const std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  waiting_.clear();
}

}  // namespace host::web
