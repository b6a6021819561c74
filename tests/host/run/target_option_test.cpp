// The text of --box.
#include "run/target_option.h"

#include <gtest/gtest.h>

#include "base/host_error.h"

namespace host {
namespace {

TEST(TargetOption, ReadsFourNumbersWithAndWithoutAName) {
  const TargetOption plain = parseTargetOption("412,-230,64,48");
  EXPECT_EQ(plain.name, "");
  EXPECT_EQ(plain.box.x, 412);
  EXPECT_EQ(plain.box.y, -230);
  EXPECT_EQ(plain.box.width, 64);
  EXPECT_EQ(plain.box.height, 48);
  EXPECT_EQ(parseTargetOption("walker=1,2,3,4").name, "walker");
}

TEST(TargetOption, RefusesEverythingElse) {
  for (const char* text : {"", "1,2,3", "1,2,3,4,5", "1,2,3,", "a,b,c,d", "1.5,2,3,4", "1 ,2,3,4", "=1,2,3,4",
                           "n=", "1,2,0,4", "1,2,3,-4", "1,2,3,99999999999", "1,2,3,4 "}) {
    EXPECT_THROW(parseTargetOption(text), HostError) << text;
  }
}

TEST(TargetOption, NamesTheNamelessAndRefusesARepeatedName) {
  EXPECT_EQ(parseTargetOptions({"1,2,3,4"}).at(0).name, "target");
  const auto several = parseTargetOptions({"1,2,3,4", "car=1,2,3,4", "1,2,3,4"});
  EXPECT_EQ(several.at(0).name, "target1");
  EXPECT_EQ(several.at(1).name, "car");
  EXPECT_EQ(several.at(2).name, "target3");
  EXPECT_THROW(parseTargetOptions({"a=1,2,3,4", "a=5,6,7,8"}), HostError);
  EXPECT_THROW(parseTargetOptions({"target2=1,2,3,4", "5,6,7,8"}), HostError);
}

}  // namespace
}  // namespace host
