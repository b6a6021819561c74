// The other side of a gimbal: finds its manager, takes control once, orders rates or a direction, and reads where it
// looks. A state machine like CameraComponent, whose messages it sends.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "gimbal/angles.h"
#include "link/camera_component.h"

namespace host::link {

/// What pan counts from.
enum class PanFrame {
  Vehicle,  ///< The vehicle's nose.
  Earth     ///< North.
};

/// A reading as it was reported.
struct GimbalReading {
  gimbal::PanTilt angles;  ///< Degrees; pan in `frame`.
  double roll_deg = 0.0;
  PanFrame frame = PanFrame::Vehicle;
  std::optional<double> heading_deg;  ///< Of the vehicle, when the message says it.
};

/// Reads a quaternion and the flags that say what its yaw counts from. Pure.
/// @return nothing when it is no rotation
std::optional<GimbalReading> readAttitude(const mavlink::GimbalDeviceAttitudeStatus& message);

/// The same reading with pan in another frame. Pure. @return nothing when the vehicle's heading is not known
std::optional<gimbal::PanTilt> inFrame(const GimbalReading& reading, PanFrame frame);

/// Angles over time. Not thread-safe.
class AngleHistory {
 public:
  static constexpr double kFarthest_s = 0.1;  ///< Beyond the first and last angle nothing is made up.

  void add(double t_s, const gimbal::PanTilt& angles);
  /// Between the two angles around the time. Pan is not wrapped. @return nothing farther than kFarthest_s from both
  /// ends
  std::optional<gimbal::PanTilt> at(double t_s) const;

 private:
  struct Sample {
    double t_s;
    gimbal::PanTilt angles;
  };
  std::deque<Sample> samples_;
};

/// Not thread-safe. Times are seconds of one clock.
class GimbalClient {
 public:
  /// @param camera  whose name it uses and over whose link it speaks; must outlive this
  GimbalClient(CameraComponent& camera, PanFrame frame) : camera_(camera), frame_(frame) {}

  /// @return a reading of the gimbal when the frame brought one, pan in this client's frame
  std::optional<gimbal::PanTilt> receive(const mavlink::Frame& frame, double now_s);

  void tick(double now_s);

  /// From now on the gimbal is wanted: control is asked for until it is given. Asked once; a station that takes it
  /// over keeps it until release() and want() again.
  void want(double now_s);
  void release();

  void turn(const gimbal::PanTilt& rates_dps);   ///< Passed over while control is not ours.
  void goTo(const gimbal::PanTilt& angles_deg);  ///< Likewise.

  bool found() const { return manager_.has_value(); }
  bool controls() const { return state_ == State::Ours; }
  bool takenAway() const { return state_ == State::TakenAway; }
  std::uint8_t device() const { return device_; }

 private:
  enum class State { Idle, Asking, Ours, TakenAway };
  struct Address {
    std::uint8_t system, component;
  };
  void command_(std::uint16_t command, float p1, float p2, float p3, float p4, float p7, std::uint8_t confirmation);
  mavlink::GimbalManagerSetPitchyaw order_() const;
  void hearStatus_(const mavlink::GimbalManagerStatus& status);

  CameraComponent& camera_;
  PanFrame frame_;
  std::optional<Address> manager_;
  std::uint8_t device_ = 0;
  State state_ = State::Idle;
  double next_s_ = 0.0;
  std::uint8_t confirmation_ = 0;
  int strangers_ = 0;  // reports in a row that name another one in control
};

}  // namespace host::link
