// A target under the plug-in, as a session of a run.
#pragma once

#include <optional>
#include <string>

#include "input/pace.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"
#include "plugin/target_session.h"
#include "run/run_loop.h"

namespace host {

/// How the plug-in works on all targets of a run.
struct PluginWork {
  std::string configText;    ///< For setConfig(); empty: nothing is passed.
  Pace pace = Pace::Fast;    ///< Which time the plug-in sees.
  GuardChoice guard;         ///< Who watches the plug-in's answers.
  bool logToStderr = false;  ///< Whether the log lines of configuring are shown.
};

/// A plug-in object of its own. It is started on the next frame after startOn() and updated on all others.
class PluginSession : public RunSession {
 public:
  /// @throws HostError (Plugin) where the library makes no object
  PluginSession(PluginLibrary& library, const PluginWork& work, const std::string& name);

  /// The next step() starts the target on this box, full-frame pixels.
  void startOn(const BBox& box) { start_ = box; }
  /// A further configuration, from the next frame on.
  void configure(const std::string& text);
  const std::string& name() const { return session_.name(); }

  CallRecord step(const FramePicture& picture, const SourceFrame& frame) override;
  CallRecord silent(const SourceFrame& frame) const override;

 private:
  TargetSession session_;
  bool logToStderr_;
  std::optional<BBox> start_;
};

/// One step outside the turns of a run, on a frame that may be older than the one in hand.
CallRecord stepOn(RunSession& session, const SourceFrame& frame);

}  // namespace host
