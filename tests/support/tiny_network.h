// A small network that cv::TrackerVit can run, written byte by byte as an ONNX file: it finds what is bright.
// Its inputs and outputs are those of ViTTrack; the picture of the target means nothing to it.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tiny_network {

// ---- Protocol buffers: a message is a row of fields, each with its number and its length.

inline std::string varint(std::uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
  return bytes + static_cast<char>(value);
}

inline std::string number(int field, std::uint64_t value) {
  return varint(static_cast<std::uint64_t>(field) << 3) + varint(value);
}

inline std::string part(int field, const std::string& bytes) {
  return varint((static_cast<std::uint64_t>(field) << 3) | 2) + varint(bytes.size()) + bytes;
}

// ---- ONNX: field numbers are those of its published onnx.proto.

using Shape = std::vector<int>;

inline std::string tensor(const std::string& name, const Shape& shape, const std::vector<float>& values) {
  std::string raw(values.size() * sizeof(float), '\0');
  std::memcpy(raw.data(), values.data(), raw.size());
  std::string message;
  for (const int side : shape) message += number(1, static_cast<std::uint64_t>(side));
  return message + number(2, 1) + part(8, name) + part(9, raw);  // 1: of floats
}

inline std::string valueInfo(const std::string& name, const Shape& shape) {
  std::string dimensions;
  for (const int side : shape) dimensions += part(1, number(1, static_cast<std::uint64_t>(side)));
  return part(1, name) + part(2, part(1, number(1, 1) + part(2, dimensions)));
}

inline std::string integers(const std::string& name, const std::vector<int>& values) {
  std::string message = part(1, name);
  for (const int value : values) message += number(8, static_cast<std::uint64_t>(value));
  return part(5, message + number(20, 7));  // 7: a list of whole numbers
}

inline std::string node(const std::string& type, const std::vector<std::string>& inputs, const std::string& output,
                        const std::string& attributes = "") {
  std::string message;
  for (const std::string& input : inputs) message += part(1, input);
  return part(1, message + part(2, output) + part(3, "make " + output) + part(4, type) + attributes);
}

/// A convolution that weighs the colours of squares of so many pixels; their mean is what counts.
inline std::string squares(const std::string& input, int side, const std::string& output,
                           const std::vector<std::array<float, 3>>& weights, const std::vector<float>& bias,
                           std::string& initializers) {
  const int channels = static_cast<int>(weights.size());
  const auto pixels = static_cast<std::size_t>(side) * static_cast<std::size_t>(side);
  std::vector<float> all;
  for (const std::array<float, 3>& colours : weights) {
    for (const float colour : colours) all.insert(all.end(), pixels, colour / static_cast<float>(pixels));
  }
  initializers += part(5, tensor(output + ".w", {channels, 3, side, side}, all));
  initializers += part(5, tensor(output + ".b", {channels}, bias));
  return node("Conv", {input, output + ".w", output + ".b"}, output,
              integers("kernel_shape", {side, side}) + integers("strides", {side, side}));
}

/// @param templateInput  "template" is what the tracker asks for; another name makes a foreign network of it
inline std::string bytes(const std::string& templateInput = "template") {
  const std::vector<std::array<float, 3>> nothing(2);
  std::string initializers;
  std::string graph;
  // The order of the colours means nothing. The target's picture is read, as it must be, and weighs nothing.
  graph += squares("search", 16, "brightness", {{1.0F, 1.0F, 1.0F}}, {-3.0F}, initializers);
  graph += squares(templateInput, 128, "unheard", {{0, 0, 0}}, {0.0F}, initializers);
  graph += node("Add", {"brightness", "unheard"}, "sum");
  graph += node("Sigmoid", {"sum"}, "output1");
  graph += squares("search", 16, "output2", nothing, {0.25F, 0.25F}, initializers);  // a target is of the size expected
  graph += squares("search", 16, "output3", nothing, {0.5F, 0.5F}, initializers);    // ... in the middle of its square
  graph += part(2, "finds what is bright") + initializers;
  graph += part(11, valueInfo(templateInput, {1, 3, 128, 128})) + part(11, valueInfo("search", {1, 3, 256, 256}));
  graph += part(12, valueInfo("output1", {1, 1, 16, 16})) + part(12, valueInfo("output2", {1, 2, 16, 16})) +
           part(12, valueInfo("output3", {1, 2, 16, 16}));
  return number(1, 8) + part(2, "tests") + part(7, graph) + part(8, part(1, "") + number(2, 13));
}

}  // namespace tiny_network
