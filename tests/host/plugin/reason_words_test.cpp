// The plug-in's words in plain English, and that none of its words is forgotten.
#include "plugin/reason_words.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace host {
namespace {

// What can be a reason or the exit of a call: the plug-in's sources say so.
const std::vector<std::string> kInternal = {"bbox collée au bord",
                                            "sauts successifs trop importants",
                                            "vitesse tracking irréaliste",
                                            "oscillation re-detect <-> lost detected, forcing fully lost.",
                                            "not found again",
                                            "init: bbox out of image => abort",
                                            "init(VP): nullptr frame or zero-size bbox => abort",
                                            "init(VP): invalid src size",
                                            "init(): exception: bad",
                                            "initializeTrackerFromFrame(init): exception: bad",
                                            "late not init/fullyLost",
                                            "pending_full_reset_",
                                            "Re-init après update ancien ROI, sizeChanged=1",
                                            "given up: not found again",
                                            "LOST predict",
                                            "UNSTABLE predict",
                                            "appearance_fail",
                                            "reject: too far"};

TEST(PlainWords, EveryReasonOfThePluginHasSome) {
  for (const std::string& reason : kInternal) {
    const std::string plain = plainWords(reason);
    EXPECT_GT(plain.size(), 10U) << reason;
    EXPECT_TRUE(std::all_of(plain.begin(), plain.end(), [](unsigned char c) { return c >= 32 && c < 127; })) << plain;
    EXPECT_EQ(explained(reason), plain + " (" + reason + ")");
  }
}

TEST(PlainWords, SeveralPhrasesGiveSeveral) {
  EXPECT_EQ(plainWords("not init/fullyLost; given up: bbox collée au bord"),
            "the box stayed at the picture's border for too long; nothing is followed any more");
}

TEST(PlainWords, WhatIsUnknownStaysAsItIs) {
  EXPECT_EQ(plainWords("glued to the edge"), "");
  EXPECT_EQ(explained("glued to the edge"), "glued to the edge");
  EXPECT_EQ(explained(""), "");
}

}  // namespace
}  // namespace host
