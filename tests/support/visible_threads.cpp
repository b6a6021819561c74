// Linked into programs for the thread sanitizer only. OpenCV hands its loops to workers of a library that is
// not instrumented: the sanitizer cannot see how they wait for one another and reports every picture they touch. These
// threads it sees begin and end.
#include <memory>
#include <opencv2/core/parallel/parallel_backend.hpp>
#include <thread>

namespace {

class VisibleThreads : public cv::parallel::ParallelForAPI {
 public:
  void parallel_for(int tasks, FN_parallel_for_body_cb_t body, void* data) override {
    std::thread half([&] {
      number() = 1;
      body(0, tasks / 2, data);
    });
    body(tasks / 2, tasks, data);
    half.join();
  }
  int getThreadNum() const override { return number(); }
  int getNumThreads() const override { return 2; }
  int setNumThreads(int /*count*/) override { return 2; }
  const char* getName() const override { return "visible threads"; }

 private:
  static int& number() {
    static thread_local int own = 0;
    return own;
  }
};

[[maybe_unused]] const bool kVisible = [] {
  cv::parallel::setParallelForBackend(std::make_shared<VisibleThreads>());
  return true;
}();

}  // namespace
