// Turns a gimbal so that a seen target stays in the middle, without swinging through, however late the pictures are.
//
// The line of sight is the gimbal's angle when the frame was taken plus the target's place in it: the gimbal's own
// movement is no part of it. So the late picture is not in the loop; it only makes the target's direction older, and a
// filter keeps it on its rate until now. The gimbal's angle when an order will act is known as well: the last angle
// read, plus what the orders since then must have done (after O. Smith's predictor, 1957).
#pragma once

#include <deque>
#include <string>

#include "gimbal/angles.h"
#include "gimbal/axis_model.h"
#include "gimbal/line_filter.h"
#include "gimbal/motion_agreement.h"

namespace gimbal {

/// The gimbal as the controller knows it.
struct ControllerParams {
  AxisParams pan;
  AxisParams tilt{60.0, 240.0, 0.04, 0.05, 1.0, -90.0, 90.0};
  LineFilterParams filter;
  double gain_per_s = 4.0;  ///< Degrees per second for each degree off, above the target's own rate. > 0
  double hold_s = 0.5;      ///< Without a seen target, the motion is kept for so long ...
  double fade_s = 0.5;      ///< ... and then fades with this time constant. > 0
  double stale_s = 0.0;     ///< How much older the gimbal's angles are than their time says; negative: younger.
  bool guardSign = true;    ///< Stop for good when the gimbal or the picture moves the wrong way.
};

/// Why it turns, or does not.
enum class ControllerState {
  Idle,       ///< No target, or no angle of the gimbal yet.
  Following,  ///< The target was seen lately.
  Holding,    ///< Not seen: it is expected to go on as it went.
  Slowing,    ///< Not seen for long: the gimbal comes to rest.
  Stopped     ///< The sign guard has seen the wrong movement; problem() says which.
};

const char* name(ControllerState state);

/// One gimbal. All times are of one clock, seconds. Not thread-safe.
class Controller {
 public:
  explicit Controller(const ControllerParams& params);

  /// An angle that was read from the gimbal. @param t_s  when, as far as is known. Values that are not finite are
  /// passed over.
  void angles(double t_s, const PanTilt& angles);

  /// The target was seen. @param t_s  when the frame was taken; @param off  its direction from the picture's middle
  /// Only for boxes that were seen in that frame: a prediction would be chased.
  void seen(double t_s, const PanTilt& off);

  /// The rates to order now, degrees per second, both 0 when there is nothing to follow. The call is taken as given:
  /// the order counts as sent.
  PanTilt rates(double now_s);

  /// Another target, or none: what was seen is forgotten, and a stop by the guard ends.
  void restart();

  void setStale(double stale_s) { params_.stale_s = stale_s; }

  ControllerState state() const { return state_; }
  const std::string& problem() const { return problem_; }  ///< One sentence; empty: none.

 private:
  struct Reading {
    double t_s, angle;
  };
  struct Axis {
    Axis(const AxisParams& axis, const LineFilterParams& filter);
    double angleAt(double t_s, double stale_s) const;
    double wantedRate(double now_s, double gain) const;

    AxisParams params;
    AxisModel model;
    LineFilter line;
    std::deque<Reading> readings;  // with their own times, not yet corrected
    double offset = 0.0;           // of the readings from the model, smoothed
    double rate = 0.0;             // last ordered
    MotionAgreement motor{0.12, 1.0};
    MotionAgreement picture{0.12, 1.0};
  };
  void read_(Axis& axis, double t_s, double angle);
  void see_(Axis& axis, double t_s, double off);
  double order_(Axis& axis, double now_s, double dt_s, double share);
  void guard_(const Axis& axis, const char* which);
  double share_(double coast_s);

  ControllerParams params_;
  Axis pan_;
  Axis tilt_;
  ControllerState state_ = ControllerState::Idle;
  std::string problem_;
  double lastSeen_s_ = 0.0;
  double usualAge_s_ = 0.0;  // of a seen frame when it comes here
  bool freshlySeen_ = false;
  double lastOrder_s_ = -1.0;
};

}  // namespace gimbal
