// The host's plug-in interface and the records that travel through it.
// A host loads a plug-in by name, drives it through IAlgoPlugin and reads named records from every call.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ocula {
class OculaPicture;
}

/// A box in full-frame pixels: top-left corner and size. The whole int32 range may arrive from a host.
struct BBox {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
};

/// A value of an output record. Objects are ordered lists: members stay in the order of insertion.
/// Integers are always carried as long and floating values as double, so a host tests one alternative per kind.
/// A pointer other than a C string does not convert: it would silently become a bool.
struct AlgoValue : std::variant<bool, long, double, std::string, std::vector<std::pair<std::string, AlgoValue>>,
                                std::vector<AlgoValue>> {
  using Object = std::vector<std::pair<std::string, AlgoValue>>;
  using Array = std::vector<AlgoValue>;
  using Base = std::variant<bool, long, double, std::string, Object, Array>;

  AlgoValue() = default;  ///< false
  AlgoValue(bool value) : Base(std::in_place_type<bool>, value) {}
  template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
  AlgoValue(T value) : Base(std::in_place_type<long>, static_cast<long>(value)) {}
  template <typename T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
  AlgoValue(T value) : Base(std::in_place_type<double>, static_cast<double>(value)) {}
  AlgoValue(const char* text) : Base(std::in_place_type<std::string>, text != nullptr ? text : "") {}
  AlgoValue(std::string_view text) : Base(std::in_place_type<std::string>, text) {}
  AlgoValue(std::string text) : Base(std::in_place_type<std::string>, std::move(text)) {}
  AlgoValue(Object members) : Base(std::in_place_type<Object>, std::move(members)) {}
  AlgoValue(Array elements) : Base(std::in_place_type<Array>, std::move(elements)) {}
  template <typename T>
  AlgoValue(T* pointer) = delete;
};

/// One named output record; the name is its schema, such as "detection.v1".
struct AlgoOutput {
  std::string name;
  AlgoValue value;
};

/// One record that a plug-in may emit. The two numbers belong to the host.
struct AlgoOutputDeclaration {
  std::string name;
  std::int32_t first = 0;
  std::int32_t second = 0;
};

/// What a tracker found in one frame.
struct DetectionResult {
  struct Det {
    std::int32_t x = 0;  ///< Left edge, full-frame pixels.
    std::int32_t y = 0;  ///< Top edge, full-frame pixels.
    std::int32_t w = 0;  ///< Width, pixels.
    std::int32_t h = 0;  ///< Height, pixels.
    std::int32_t class_id = -1;
    std::string class_name;
    std::string class_info;
    std::int32_t tracker_id = 0;
    float score = 0.0F;  ///< Confidence, [0, 1].
  };
  std::vector<Det> dets;
};

/// What a host can ask of a plug-in. The order of the virtual functions is the binary interface: append only.
class __attribute__((visibility("default"))) IAlgoPlugin {
 public:
  virtual ~IAlgoPlugin() = default;
  /// Starts on the object in `box` (full-frame pixels) of the first frame. *started (may be null): success.
  virtual std::vector<AlgoOutput> init(const std::vector<std::shared_ptr<ocula::OculaPicture>>& frames, const BBox& box,
                                       bool* started) = 0;
  virtual std::vector<AlgoOutputDeclaration> getOutputDeclarations() const = 0;
  /// One step on the first frame. *processed (may be null): the frame was consumed.
  virtual std::vector<AlgoOutput> update(const std::vector<std::shared_ptr<ocula::OculaPicture>>& frames,
                                         bool* processed) = 0;
  virtual bool isAlive() = 0;
  virtual std::string getName() const = 0;
  virtual std::string getUuid() = 0;
  virtual bool isDynamic() const = 0;
  virtual void changePerformance(int level) = 0;
  virtual void enableDebug(bool on) = 0;
  virtual std::string getConfigList() = 0;
  virtual void setConfig(std::string json) = 0;
  virtual std::string getPropertyList() = 0;
  virtual void setProperty(std::string name, std::string value) = 0;
  virtual std::string property(std::string name) = 0;
};
