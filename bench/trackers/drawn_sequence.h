// A drawn clip with its truth, for a comparison where no footage is at hand.
#pragma once

#include <string>

namespace bench {

/// A drawn walk behind a lamp post, 640 x 360, in a folder of its own that goes when this does.
class DrawnSequence {
 public:
  /// @throws HostError (Output) when the folder cannot be made
  explicit DrawnSequence(int frames);
  DrawnSequence(const DrawnSequence&) = delete;
  DrawnSequence& operator=(const DrawnSequence&) = delete;
  ~DrawnSequence();

  std::string clip() const { return folder_ + "/walk.avi"; }
  std::string truth() const { return folder_ + "/walk.txt"; }

 private:
  std::string folder_;
};

}  // namespace bench
