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
  std::int32_t x = 0;       ///< Left edge.
  std::int32_t y = 0;       ///< Top edge.
  std::int32_t width = 0;   ///< At least 1 for a box that can be started on.
  std::int32_t height = 0;  ///< Likewise.
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
  std::string name;  ///< Such as "detection.v1".
  AlgoValue value;   ///< An object, in the records of this plug-in.
};

/// One record that a plug-in may emit. The two numbers belong to the host.
struct AlgoOutputDeclaration {
  std::string name;         ///< As in AlgoOutput.
  std::int32_t first = 0;   ///< Passed through to the host.
  std::int32_t second = 0;  ///< Likewise.
};

/// What a tracker found in one frame.
struct DetectionResult {
  /// One box with what is known about it.
  struct Det {
    std::int32_t x = 0;           ///< Left edge, full-frame pixels.
    std::int32_t y = 0;           ///< Top edge, full-frame pixels.
    std::int32_t w = 0;           ///< Width, pixels.
    std::int32_t h = 0;           ///< Height, pixels.
    std::int32_t class_id = -1;   ///< -1: the tracker knows no classes.
    std::string class_name;       ///< Empty.
    std::string class_info;       ///< Empty.
    std::int32_t tracker_id = 0;  ///< 0.
    float score = 0.0F;           ///< Confidence, [0, 1].
  };
  std::vector<Det> dets;  ///< Empty: nothing to report.
};

/// What a host can ask of a plug-in. The order of the virtual functions is the binary interface: append only.
class __attribute__((visibility("default"))) IAlgoPlugin {
 public:
  virtual ~IAlgoPlugin() = default;
  /// Starts on the object in `box` (full-frame pixels) of the first frame. *started (may be null): success.
  virtual std::vector<AlgoOutput> init(const std::vector<std::shared_ptr<ocula::OculaPicture>>& frames, const BBox& box,
                                       bool* started) = 0;
  /// The records that init() and update() may answer with; always the same. Any thread, never waits.
  virtual std::vector<AlgoOutputDeclaration> getOutputDeclarations() const = 0;
  /// One step on the first frame. *processed (may be null): the frame was consumed.
  virtual std::vector<AlgoOutput> update(const std::vector<std::shared_ptr<ocula::OculaPicture>>& frames,
                                         bool* processed) = 0;
  /// Whether the plug-in can be driven: true for as long as the object lives. Any thread.
  virtual bool isAlive() = 0;
  /// The name of the class, as in its log lines. Any thread.
  virtual std::string getName() const = 0;
  /// Tells objects apart: a UUID in lower case, the same for the object's life. Any thread, waits for no frame.
  virtual std::string getUuid() = 0;
  /// A property that the host framework asks for; it does not change. Any thread.
  virtual bool isDynamic() const = 0;
  /// Asks for more or less work; a plug-in may ignore it. @param level  the host's own scale
  virtual void changePerformance(int level) = 0;
  /// Log lines on standard output from here on, or none. Any thread, never waits.
  virtual void enableDebug(bool on) = 0;
  /// JSON Schema of the text that setConfig() reads; always the same. Any thread, never waits.
  virtual std::string getConfigList() = 0;
  /// Takes a JSON object. What it does not understand changes nothing; no error is reported but in the log.
  /// Any thread; waits for a running init() or update().
  virtual void setConfig(std::string json) = 0;
  /// The names that property() knows; empty where there are none.
  virtual std::string getPropertyList() = 0;
  /// Sets one property; an unknown name is ignored.
  virtual void setProperty(std::string name, std::string value) = 0;
  /// The value of one property; empty for an unknown name.
  virtual std::string property(std::string name) = 0;
};
