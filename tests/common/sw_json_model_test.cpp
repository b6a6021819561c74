// The JSON values: conversions, copies that share and stores that do not, and trees of any depth.
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "sw_json.h"

namespace {

using Kind = SwJsonValue::Kind;

SwJsonValue parse(const SwString& json) {
  SwString error;
  SwJsonValue value = SwJsonDocument::parseDocument(json, "", error);
  EXPECT_EQ(error, "");
  return value;
}

TEST(JsonValue, NumbersItsKinds) {
  EXPECT_EQ(static_cast<int>(Kind::Null), 0);
  EXPECT_EQ(static_cast<int>(SwJsonValue(true).kind()), 1);
  EXPECT_EQ(static_cast<int>(SwJsonValue(5).kind()), 2);
  EXPECT_EQ(static_cast<int>(SwJsonValue(0.5).kind()), 3);
  EXPECT_EQ(static_cast<int>(SwJsonValue("text").kind()), 4);
  EXPECT_EQ(static_cast<int>(SwJsonValue(std::make_shared<SwJsonObject>()).kind()), 5);
  EXPECT_EQ(static_cast<int>(SwJsonValue(std::make_shared<SwJsonArray>()).kind()), 6);
}

TEST(JsonValue, IsNullByDefaultAndForAnEmptyPointer) {
  EXPECT_EQ(SwJsonValue().kind(), Kind::Null);
  EXPECT_EQ(SwJsonValue(std::shared_ptr<SwJsonObject>()).kind(), Kind::Null);
  EXPECT_EQ(SwJsonValue(std::shared_ptr<SwJsonArray>()).kind(), Kind::Null);
}

TEST(JsonValue, WritesItselfAsText) {
  EXPECT_EQ(SwJsonValue().toString(), "null");
  EXPECT_EQ(SwJsonValue(true).toString(), "true");
  EXPECT_EQ(SwJsonValue(false).toString(), "false");
  EXPECT_EQ(SwJsonValue(std::numeric_limits<std::int64_t>::min()).toString(), "-9223372036854775808");
  EXPECT_EQ(SwJsonValue(0.5).toString(), "0.500000");
  EXPECT_EQ(SwJsonValue(-1.0 / 3.0).toString(), "-0.333333");
  EXPECT_EQ(SwJsonValue("a \"b\"").toString(), "a \"b\"");
}

TEST(JsonValue, WritesTheLargestDoubleInFull) {
  const std::string text = SwJsonValue(std::numeric_limits<double>::max()).toString();
  EXPECT_EQ(text.size(), 309U + 7U);
  EXPECT_EQ(text.substr(0, 12), "179769313486");
}

TEST(JsonValue, ConvertsBetweenNumbersAndBooleans) {
  EXPECT_TRUE(SwJsonValue(-1).toBool());
  EXPECT_FALSE(SwJsonValue(0).toBool());
  EXPECT_TRUE(SwJsonValue(0.5).toBool());
  EXPECT_FALSE(SwJsonValue(-0.0).toBool());
  EXPECT_EQ(SwJsonValue(true).toInt64(), 1);
  EXPECT_EQ(SwJsonValue(-2.9).toInt64(), -2);
  EXPECT_EQ(SwJsonValue(false).toDouble(), 0.0);
  EXPECT_EQ(SwJsonValue(7).toDouble(), 7.0);
}

TEST(JsonValue, SaturatesADoubleBeyond64Bits) {
  EXPECT_EQ(SwJsonValue(1e300).toInt64(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(SwJsonValue(9223372036854775808.0).toInt64(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(SwJsonValue(-1e300).toInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(SwJsonValue(-9223372036854775808.0).toInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(SwJsonValue(std::numeric_limits<double>::quiet_NaN()).toInt64(), 0);
}

TEST(JsonValue, AnswersForAnotherKindWithNothing) {
  for (const char* const json : {"null", "\"7\"", "[7]", "{\"a\":7}"}) {
    EXPECT_FALSE(parse(json).toBool()) << json;
    EXPECT_EQ(parse(json).toInt64(), 0) << json;
    EXPECT_EQ(parse(json).toDouble(), 0.0) << json;
  }
  EXPECT_EQ(parse("[7]").toObject(), nullptr);
  EXPECT_EQ(parse("{}").toArray(), nullptr);
  EXPECT_EQ(parse("5").toObject(), nullptr);
  EXPECT_EQ(parse("5").toArray(), nullptr);
}

TEST(JsonObject, AnswersAnAbsentKeyWithOneNullAndInsertsNothing) {
  const SwJsonObject object;
  const SwJsonValue& absent = object["a"];
  EXPECT_EQ(absent.kind(), Kind::Null);
  EXPECT_EQ(&absent, &SwJsonObject()["b"]);
  EXPECT_EQ(object.size(), 0U);
  EXPECT_FALSE(object.contains("a"));
}

TEST(JsonObject, OwnsACopyOfWhatIsStored) {
  const auto inner = std::make_shared<SwJsonObject>();
  inner->set("x", parse(R"({"deep": [1]})"));
  SwJsonObject outer;
  outer.set("inner", SwJsonValue(inner));
  inner->set("x", SwJsonValue(5));
  inner->set("y", SwJsonValue(6));
  const auto stored = outer["inner"].toObject();
  EXPECT_EQ(stored->size(), 1U);
  EXPECT_EQ((*(*stored)["x"].toObject())["deep"].toArray()->size(), 1U);
}

TEST(JsonObject, MayHoldACopyOfItself) {
  const auto object = std::make_shared<SwJsonObject>();
  object->set("n", SwJsonValue(1));
  object->set("self", SwJsonValue(object));
  EXPECT_EQ(object->size(), 2U);
  EXPECT_EQ((*object)["self"].toObject()->size(), 1U);
  object->set("n", (*object)["self"]);
  EXPECT_EQ((*object)["n"].toObject()->size(), 1U);
}

TEST(JsonObject, IsCopiedWholeAndMoved) {
  const auto original = parse(R"({"a": {"b": 1}, "c": [2]})").toObject();
  SwJsonObject copy = *original;
  (*original)["a"].toObject()->set("b", SwJsonValue(9));
  EXPECT_EQ((*copy["a"].toObject())["b"].toInt64(), 1);
  SwJsonObject assigned;
  assigned = copy;
  EXPECT_NE(assigned["a"].toObject(), copy["a"].toObject());
  const SwJsonObject moved = std::move(copy);
  EXPECT_EQ(moved.size(), 2U);
}

TEST(JsonArray, ChecksItsBounds) {
  const auto array = parse("[1,2]").toArray();
  EXPECT_EQ((*array)[1].toInt64(), 2);
  try {
    (*array)[2];
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "Index out of bounds");
  }
}

TEST(JsonArray, OwnsACopyOfWhatIsAppended) {
  const auto array = std::make_shared<SwJsonArray>();
  array->append(SwJsonValue("x"));
  array->append(SwJsonValue(array));
  array->append((*array)[1]);
  ASSERT_EQ(array->size(), 3U);
  EXPECT_EQ((*array)[1].toArray()->size(), 1U);
  EXPECT_NE((*array)[1].toArray(), (*array)[2].toArray());
  SwJsonArray copy;
  copy = *array;
  EXPECT_EQ(copy.size(), 3U);
}

TEST(JsonValue, SharesItsContainerWithItsCopies) {
  const SwJsonValue original = parse("[]");
  const SwJsonValue copy = original;
  copy.toArray()->append(SwJsonValue(1));
  EXPECT_EQ(original.toArray()->size(), 1U);
}

SwString nested(const std::string& opening, const std::string& middle, const std::string& closing, std::size_t depth) {
  SwString json;
  json.reserve((opening.size() + closing.size()) * depth + middle.size());
  for (std::size_t i = 0; i < depth; ++i) json += opening;
  json += middle;
  for (std::size_t i = 0; i < depth; ++i) json += closing;
  return json;
}

// The recursion that would overflow the stack is in reading, copying and destroying alike.
void readCopyAndDestroy(const SwString& json, std::size_t depth) {
  SwString error;
  SwJsonValue value = SwJsonDocument::parseDocument(json, "", error);
  ASSERT_EQ(error, "");
  SwJsonArray holder;
  holder.append(value);
  value = SwJsonValue();
  std::size_t levels = 0;
  SwJsonValue level = holder[0];
  for (;; ++levels) {
    if (const auto array = level.toArray()) {
      level = SwJsonValue((*array)[0]);
    } else if (const auto object = level.toObject()) {
      level = SwJsonValue((*object)["a"]);
    } else {
      break;
    }
  }
  EXPECT_EQ(levels, depth);
  EXPECT_EQ(level.toInt64(), 7);
}

TEST(DeepNesting, IsReadCopiedAndDestroyed) {
  constexpr std::size_t kDepth = 100000;
  readCopyAndDestroy(nested("[", "7", "]", kDepth), kDepth);
  readCopyAndDestroy(nested("{\"a\":", "7", "}", kDepth), kDepth);
  readCopyAndDestroy(nested("[{\"a\":", "7", "}]", kDepth), 2 * kDepth);
}

TEST(DeepNesting, IsLimitedByMemoryAlone) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr std::size_t kDepth = 1000000;  // under a sanitizer each level costs many times its usual memory
#else
  constexpr std::size_t kDepth = 10000000;
#endif
  SwString error;
  EXPECT_EQ(SwJsonDocument::parseDocument(SwString(kDepth, '['), "", error).kind(), Kind::Null);
  EXPECT_EQ(error, "Unterminated JSON array (index " + std::to_string(kDepth) + ") near \"[[[[[[[[[[[[[[[[[[[[\"");
}

TEST(DeepNesting, IsDestroyedWhenACallerStillHoldsAPieceOfIt) {
  SwJsonValue root = parse(nested("[[[", "7", "]]]", 100000));
  std::shared_ptr<SwJsonArray> middle = root.toArray();
  for (int i = 0; i < 150000; ++i) middle = (*middle)[0].toArray();
  root = SwJsonValue();
  EXPECT_EQ(middle->size(), 1U);
}

}  // namespace
