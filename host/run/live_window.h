// A window on the running tracker: look, pause, step, drag a new box.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "plugin/call_record.h"
#include "run/run_steering.h"

namespace host {

/// Opens a window. Keys: space pauses and goes on, '.' steps one frame, q or Esc ends the run. Dragging with the mouse
/// starts the first target over on the dragged box.
/// @throws HostError (Usage) saying what to do where no window can be shown
std::unique_ptr<RunSteering> openLiveWindow(const std::string& title);

/// Whether the display that the environment names answers. What to do about it when not; empty: it does.
std::string displayFault();

/// The box between two corners in any order, inside the frame; nothing where it is too small to be meant. Pure.
std::optional<cv::Rect> draggedBox(cv::Point from, cv::Point to, cv::Size frame);

}  // namespace host
