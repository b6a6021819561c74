#include "run/plugin_session.h"

#include <utility>

#include "run/live_facts.h"
#include "run/log_lines.h"

namespace host {

PluginSession::PluginSession(PluginLibrary& library, const PluginWork& work, const std::string& name)
    : session_(library.create(), name, library.engine()), logToStderr_(work.logToStderr) {
  session_.keepPace(work.pace);
  session_.guardWith(work.guard);
  configure(work.configText);
}

void PluginSession::configure(const std::string& text) {
  const std::vector<std::string> lines = session_.configure(text);
  if (logToStderr_) showLogLines(lines, session_.name());
}

CallRecord PluginSession::step(const FramePicture& picture, const SourceFrame& frame) {
  const FramePlace place{frame.index, frame.time_s};
  const std::optional<BBox> box = std::exchange(start_, std::nullopt);
  return box ? session_.init(picture, place, *box) : session_.update(picture, place);
}

CallRecord PluginSession::silent(const SourceFrame& frame) const {
  return session_.silent({frame.index, frame.time_s});
}

CallRecord stepOn(RunSession& session, const SourceFrame& frame) {
  CallRecord record = session.step(pictureOf(frame), frame);
  addLiveFacts(record, frame);
  return record;
}

}  // namespace host
