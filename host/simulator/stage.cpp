#include "simulator/stage.h"

#include <cmath>

namespace host::sim {

Stage::Stage(const Scenario& scenario)
    : scenario_(scenario),
      panorama_(scenario.scene, scenario.seed),
      noise_(scenario.frame, scenario.camera.noise, scenario.seed) {
  int number = 0;
  const auto add = [&](const Actor& actor) {
    const int paint = actor.likeTarget ? 0 : number;  // the target is the first
    actors_.emplace_back(&actor, makeSprite(actor.look, actor.size.width / actor.size.height, paint, scenario.seed));
    ++number;
  };
  add(scenario.target);  // painted in this order: what comes later hides what came before
  for (const Actor& decoy : scenario.decoys) add(decoy);
  for (const Actor& wall : scenario.occluders) add(wall);
}

cv::Mat Stage::see(const View& view, double t_s) {
  cv::Mat picture = panorama_.see(view, scenario_.frame);
  for (const auto& [actor, sprite] : actors_) {
    if (isThere(*actor, t_s)) paint(picture, sprite, boxOf(*actor, t_s, view, scenario_.frame));
  }
  noise_.add(picture);
  return picture;
}

Truth Stage::truth(const View& view, double t_s) const {
  Truth truth;
  truth.there = isThere(scenario_.target, t_s);
  truth.direction = placeOf(scenario_.target, t_s);
  truth.direction.pan = wrapped(truth.direction.pan);
  truth.box = boxOf(scenario_.target, t_s, view, scenario_.frame);
  truth.visibleShare = truth.there ? visibleShare(truth.box, covers_(view, t_s), scenario_.frame) : 0.0;
  const Angles off = between(view.centre, truth.direction);
  truth.pointingErrorDeg = std::hypot(off.pan, off.tilt);
  truth.pointingErrorPx =
      std::hypot(off.pan / view.hfov * scenario_.frame.width, off.tilt / view.vfov * scenario_.frame.height);
  return truth;
}

std::vector<cv::Rect2d> Stage::covers_(const View& view, double t_s) const {
  std::vector<cv::Rect2d> covers;
  for (const auto* group : {&scenario_.decoys, &scenario_.occluders}) {
    for (const Actor& actor : *group) {
      if (isThere(actor, t_s)) covers.push_back(boxOf(actor, t_s, view, scenario_.frame));
    }
  }
  return covers;
}

}  // namespace host::sim
