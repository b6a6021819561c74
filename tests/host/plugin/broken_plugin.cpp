// One library, broken in the way that BROKEN_... says at compile time.
#include <class_loader/class_loader.hpp>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "ialgo_plugin.h"

#if defined(BROKEN_CRASHES)
namespace {
struct CrashesOnLoad {
  CrashesOnLoad() { std::raise(SIGSEGV); }
} crashesOnLoad;
}  // namespace
#elif defined(BROKEN_ENDS)
namespace {
struct EndsOnLoad {
  EndsOnLoad() { std::_Exit(0); }
} endsOnLoad;
}  // namespace
#elif defined(BROKEN_OTHER_BASE)
class OtherBase {
 public:
  virtual ~OtherBase() = default;
};
class CSRTTrackingAlgo : public OtherBase {};
CLASS_LOADER_REGISTER_CLASS(CSRTTrackingAlgo, OtherBase)
#elif defined(BROKEN_NEEDS_MISSING)
int inMissingLibrary();
__attribute__((visibility("default"))) int callsMissingLibrary() {
  return inMissingLibrary();
}
#elif defined(BROKEN_MISSING)
int inMissingLibrary();
int inMissingLibrary() {
  return 1;
}
#elif defined(BROKEN_OTHER_RECORDS) || defined(BROKEN_THROWS)
class CSRTTrackingAlgo : public IAlgoPlugin {
 public:
#if defined(BROKEN_THROWS)
  CSRTTrackingAlgo() {
    throw std::runtime_error("no licence key");
  }
#endif
  std::vector<AlgoOutput> init(const std::vector<std::shared_ptr<ocula::OculaPicture> >&, const BBox&, bool*) override {
    return {};
  }
  std::vector<AlgoOutputDeclaration> getOutputDeclarations() const override {
    return {{"faces.v2", 0, 0}};
  }
  std::vector<AlgoOutput> update(const std::vector<std::shared_ptr<ocula::OculaPicture> >&, bool*) override {
    return {};
  }
  bool isAlive() override {
    return true;
  }
  std::string getName() const override {
    return {};
  }
  std::string getUuid() override {
    return {};
  }
  bool isDynamic() const override {
    return true;
  }
  void changePerformance(int) override {}
  void enableDebug(bool) override {}
  std::string getConfigList() override {
    return {};
  }
  void setConfig(std::string) override {}
  std::string getPropertyList() override {
    return {};
  }
  void setProperty(std::string, std::string) override {}
  std::string property(std::string) override {
    return {};
  }
};
CLASS_LOADER_REGISTER_CLASS(CSRTTrackingAlgo, IAlgoPlugin)
#endif
