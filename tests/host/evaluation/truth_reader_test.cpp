// Truth files: what is read from each format, and how each mistake is said with file and row.
#include <gtest/gtest.h>

#include <string>

#include "base/host_error.h"
#include "evaluation/sequence.h"
#include "evaluation/truth.h"
#include "support/host_program.h"

namespace {

using host::HostError;
using host::TruthFormat;
using host::TruthOptions;
using host::TruthTarget;

std::vector<TruthTarget> parse(const std::string& text, const TruthOptions& options = {}) {
  return host::parseTruth(text, "truth.txt", options, "target");
}

std::string complaintOf(const std::string& text, const TruthOptions& options = {}) {
  try {
    parse(text, options);
  } catch (const HostError& error) {
    EXPECT_EQ(error.code(), host::ExitCode::Usage);
    return error.what();
  }
  return "no complaint";
}

TEST(TruthReader, ReadsBoxesWithAnySeparator) {
  for (const char* text : {"1,2,3,4\n5,6,7,8\n", "1\t2\t3\t4\r\n5\t6\t7\t8\r\n", "1 2 3 4\n\n5;6;7;8"}) {
    const std::vector<TruthTarget> targets = parse(text);
    ASSERT_EQ(targets.size(), 1U) << text;
    ASSERT_EQ(targets[0].marks.size(), 2U) << text;
    EXPECT_EQ(targets[0].marks[0].box, cv::Rect2d(1, 2, 3, 4)) << text;
    EXPECT_EQ(targets[0].marks[1].box, cv::Rect2d(5, 6, 7, 8)) << text;
    EXPECT_EQ(targets[0].marks[1].frame, 1) << text;
  }
}

TEST(TruthReader, NoAreaOrNanMeansAbsent) {
  const std::vector<TruthTarget> targets = parse("nan,nan,nan,nan\n1,2,0,4\n1,2,3,4\n");
  EXPECT_TRUE(targets[0].marks[0].absent);
  EXPECT_TRUE(targets[0].marks[1].absent);
  EXPECT_FALSE(targets[0].marks[2].absent);
  EXPECT_EQ(targets[0].firstVisibleMark(), 2);
}

TEST(TruthReader, APolygonBecomesTheBoxAroundItsCorners) {
  const std::vector<TruthTarget> targets = parse("10,5,20,8,18,30,8,27\n");
  EXPECT_EQ(targets[0].marks[0].box, cv::Rect2d(8, 5, 12, 25));
}

TEST(TruthReader, ATableHoldsSeveralTargetsCountedFromItsFirstNumber) {
  const std::vector<TruthTarget> targets =
      parse("# made by hand\nframe,id,left,top,width,height\n1,10,1,2,3,4\n11,2,5,6,7,8\n11,10,2,2,3,4\n");
  ASSERT_EQ(targets.size(), 2U);
  EXPECT_EQ(targets[0].name, "2");  // 2 before 10
  EXPECT_EQ(targets[1].name, "10");
  EXPECT_EQ(targets[0].marks[0].frame, 10);
  ASSERT_EQ(targets[1].marks.size(), 2U);
  EXPECT_EQ(targets[1].marks[0].frame, 0);
}

TEST(TruthReader, AHeadingMayNameColumnsInAnyOrder) {
  TruthOptions options;
  options.firstNumber = 0;
  const std::vector<TruthTarget> targets = parse("id,x,y,w,h,frame\nwalker,1,2,3,4,7\n", options);
  EXPECT_EQ(targets[0].name, "walker");
  EXPECT_EQ(targets[0].marks[0].frame, 7);
  EXPECT_EQ(targets[0].marks[0].box, cv::Rect2d(1, 2, 3, 4));
}

TEST(TruthReader, SaysFileAndRowOfWhatItCannotRead) {
  EXPECT_EQ(complaintOf("1,2,3,4\n1,2,x,4\n"), "truth 'truth.txt', row 2: 'x' is not a number");
  EXPECT_EQ(complaintOf("1,2,3,4\n\n1,2,3\n"), "truth 'truth.txt', row 3: expected x,y,width,height, found 3 values");
  EXPECT_EQ(complaintOf("1,2,3,4,5,6,7,8\n1,2,3\n"),
            "truth 'truth.txt', row 2: expected the corners x1,y1,x2,y2,..., found 3 values");
  EXPECT_EQ(
      complaintOf("1,2,3\n"),
      "truth 'truth.txt', row 1: 3 values are neither a box (4), a polygon (8 or more), frame,id,x,y,w,h (6) nor a "
      "MOT table (7 to 10); --format says what is meant");
  EXPECT_EQ(complaintOf("frame,id,x,y,w,h\n1,a,1,2,3\n"),
            "truth 'truth.txt', row 2: expected frame,id,x,y,w,h, found 5 values");
  EXPECT_EQ(complaintOf("frame,id,x,y,w,h\n1,a,1,2,3,4\n1,a,1,2,3,4\n"),
            "truth 'truth.txt', row 3: target 'a' is marked twice in frame 1");
  EXPECT_EQ(complaintOf("frame,id,x,y,w,h\n1.5,a,1,2,3,4\n"),
            "truth 'truth.txt', row 2: '1.5' is not the number of a frame");
  EXPECT_EQ(complaintOf("frame,id,x,y,w\n1,a,1,2,3\n"), "truth 'truth.txt', row 1: the heading has no column 'h'");
  EXPECT_NE(complaintOf("frame,id,x,y,w,h\n0,a,1,2,3,4\n").find("row 2: frame 0 lies before the first frame"),
            std::string::npos);
}

TEST(TruthReader, AWordOrAnInfiniteNumberIsSaidWithItsRow) {
  EXPECT_EQ(complaintOf("x,2,3,4\n"), "truth 'truth.txt', row 1: 'x' is not a number");
  EXPECT_EQ(complaintOf("inf,inf,inf,inf\n"), "truth 'truth.txt', row 1: 'inf' is not finite");
  EXPECT_EQ(complaintOf("1,2,3,4\n1,2,3,-Infinity\n"), "truth 'truth.txt', row 2: '-Infinity' is not finite");
  EXPECT_EQ(complaintOf("1,2,3,1e400\n"), "truth 'truth.txt', row 1: '1e400' is not finite");
  EXPECT_EQ(complaintOf("one,two,three,four\n"), "truth 'truth.txt', row 1: 'one' is not a number");
  EXPECT_EQ(complaintOf("1,1,1,1,9,9,1,-1,-1,-1\n2,1,1,x,9,9,1,-1,-1,-1\n"),
            "truth 'truth.txt', row 2: 'x' is not a number");
}

TEST(TruthReader, AMotTableIsNotTakenForPolygons) {
  const std::vector<TruthTarget> targets =
      parse("1,1,100,50,40,80,1,-1,-1,-1\n1,2,10,5,4,8,1,-1,-1,-1\n2,1,102,50,40,80,1,-1,-1,-1\n");
  ASSERT_EQ(targets.size(), 2U);
  EXPECT_EQ(targets[0].name, "1");
  ASSERT_EQ(targets[0].marks.size(), 2U);
  EXPECT_EQ(targets[0].marks[1].frame, 1);
  EXPECT_EQ(targets[0].marks[1].box, cv::Rect2d(102, 50, 40, 80));
}

TEST(TruthReader, MotTablesOfOtherWidthsAreReadToo) {
  for (const char* more : {",1", ",1,7", ",1,7,0.5", ",1,7,0.5,0"}) {
    std::string text;
    for (int i = 1; i < 4; ++i) text += std::to_string(i) + ",3,100,50,40,80" + more + "\n";
    const std::vector<TruthTarget> targets = parse(text);
    ASSERT_EQ(targets.size(), 1U) << more;
    EXPECT_EQ(targets[0].marks.size(), 3U) << more;
    EXPECT_EQ(targets[0].marks[2].box, cv::Rect2d(100, 50, 40, 80)) << more;
  }
}

TEST(TruthReader, AMotRowThatIsNotToBeJudgedIsLeftOut) {
  const std::vector<TruthTarget> targets = parse("1,1,100,50,40,80,1,1,1\n2,1,100,50,40,80,0,1,1\n1,9,5,5,4,8,0,1,1\n");
  ASSERT_EQ(targets.size(), 1U);
  EXPECT_EQ(targets[0].marks.size(), 1U);
}

TEST(TruthReader, PolygonsOfWholeNumbersStayPolygons) {
  const std::vector<TruthTarget> targets = parse("10,5,20,8,18,30,8,27\n11,5,21,8,19,30,9,27\n");
  EXPECT_EQ(targets[0].marks[1].box, cv::Rect2d(9, 5, 12, 25));
  // Five corners, and an outline with a dent.
  EXPECT_EQ(parse("10,5,20,8,25,15,18,30,8,27\n")[0].marks[0].box, cv::Rect2d(8, 5, 17, 25));
  EXPECT_EQ(parse("10.5,5,20,8,12,15,18,30,8,27\n")[0].marks[0].box, cv::Rect2d(8, 5, 12, 25));
}

TEST(TruthReader, WhatCanBeReadInTwoWaysIsRefusedWithTheChoices) {
  // A table of detections whose seventh value is no flag; corners of a polygon with a dent.
  const std::string both = "1,1,100,50,40,80,99,-1,-1,-1\n2,1,102,50,40,80,99,-1,-1,-1\n";
  EXPECT_NE(complaintOf(both).find("--format vot or --format mot"), std::string::npos) << complaintOf(both);
  TruthOptions options;
  options.format = TruthFormat::Mot;
  EXPECT_EQ(parse(both, options)[0].marks[0].box, cv::Rect2d(100, 50, 40, 80));
  options.format = TruthFormat::Polygon;
  EXPECT_EQ(parse(both, options)[0].marks.size(), 2U);
  EXPECT_NE(complaintOf("1.5,1,1,1,1,1,1,1,1\n").find("--format"), std::string::npos);
  EXPECT_NE(complaintOf("1,2,3,4,5\n").find("--format"), std::string::npos);
}

TEST(TruthReader, AHeadingMayLeaveOutWhatIsNotNeeded) {
  const std::vector<TruthTarget> frames = parse("Frame X Y W H\n3 1 2 3 4\n");
  EXPECT_EQ(frames[0].name, "target");
  EXPECT_EQ(frames[0].marks[0].frame, 2);
  const std::vector<TruthTarget> boxes = parse("left,top,width,height\n1,2,3,4\n5,6,7,8\n");
  ASSERT_EQ(boxes[0].marks.size(), 2U);
  EXPECT_EQ(boxes[0].marks[1].frame, 1);
  EXPECT_EQ(boxes[0].marks[1].box, cv::Rect2d(5, 6, 7, 8));
}

TEST(TruthReader, AByteOrderMarkIsNoPartOfTheFirstValue) {
  const host_test::TempFolder folder;
  host_test::writeText(folder.file("t.txt"),
                       "\xEF\xBB\xBF"
                       "1,2,3,4\r\n5,6,7,8\r\n");
  const std::vector<TruthTarget> targets = host::readTruth(folder.file("t.txt"), {}, "target");
  ASSERT_EQ(targets[0].marks.size(), 2U);
  EXPECT_EQ(targets[0].marks[0].box, cv::Rect2d(1, 2, 3, 4));
  host_test::writeText(folder.file("t.txt"),
                       "\xEF\xBB\xBF"
                       "frame,id,x,y,w,h\r\n1,a,1,2,3,4\r\n");
  EXPECT_EQ(host::readTruth(folder.file("t.txt"), {}, "target")[0].name, "a");
  host_test::writeText(folder.file("t.txt"), std::string("\xFF\xFE"
                                                         "1\0,\0",
                                                         6));
  EXPECT_THROW(host::readTruth(folder.file("t.txt"), {}, "target"), HostError);
}

TEST(TruthReader, AnEmptyFileAndOneWithoutTargetsAreRefused) {
  EXPECT_EQ(complaintOf("# nothing\n"), "truth 'truth.txt' holds no rows");
  EXPECT_EQ(complaintOf("0,0,0,0\n"), "truth 'truth.txt' marks no target anywhere");
}

TEST(TruthReader, AnAbsenceFileHidesFrames) {
  TruthTarget target = parse("1,2,3,4\n1,2,3,4\n")[0];
  host::applyAbsence("0\n1\n", "absence.label", target);
  EXPECT_FALSE(target.marks[0].absent);
  EXPECT_TRUE(target.marks[1].absent);
  EXPECT_THROW(host::applyAbsence("0\n", "absence.label", target), HostError);
  EXPECT_THROW(host::applyAbsence("0\n2\n", "absence.label", target), HostError);
}

TEST(TruthFormatWord, IsOneOfTheKnownOnes) {
  EXPECT_EQ(host::truthFormatOf("otb"), TruthFormat::Rect);
  EXPECT_EQ(host::truthFormatOf("got10k"), TruthFormat::Rect);
  EXPECT_EQ(host::truthFormatOf("vot"), TruthFormat::Polygon);
  EXPECT_EQ(host::truthFormatOf("mot"), TruthFormat::Mot);
  EXPECT_THROW(host::truthFormatOf("xml"), HostError);
}

TEST(Sequences, AFolderOfKnownLayoutBringsItsTruth) {
  const host_test::TempFolder folder;
  std::filesystem::create_directories(folder.file("street/color"));
  host_test::writeText(folder.file("street/groundtruth.txt"), "1,2,3,4\n1,2,3,4\n");
  host_test::writeText(folder.file("street/absence.label"), "0\n1\n");
  host::SequenceOptions options;
  options.sources = {folder.file("street")};
  const std::vector<host::Sequence> sequences = host::openSequences(options);
  ASSERT_EQ(sequences.size(), 1U);
  EXPECT_EQ(sequences[0].name, "street");
  EXPECT_EQ(sequences[0].source.source, folder.file("street/color"));
  EXPECT_TRUE(sequences[0].targets[0].marks[1].absent);
}

TEST(Sequences, TruthFilesGoToTheSourcesThatNeedThem) {
  const host_test::TempFolder folder;
  host_test::writeText(folder.file("a.txt"), "1,2,3,4\n");
  host::SequenceOptions options;
  options.sources = {"clip.avi"};
  EXPECT_THROW(host::openSequences(options), HostError);  // needs one
  options.truths = {folder.file("a.txt")};
  EXPECT_EQ(host::openSequences(options)[0].name, "clip");
  options.truths.push_back(folder.file("a.txt"));
  EXPECT_THROW(host::openSequences(options), HostError);  // one too many
  options.truths.pop_back();
  options.only = {"nobody"};
  EXPECT_THROW(host::openSequences(options), HostError);
}

TEST(Shards, AreDisjointAndTogetherAll) {
  host::Sequence a;
  a.name = "a";
  a.targets = parse("frame,id,x,y,w,h\n1,1,1,1,9,9\n1,2,1,1,9,9\n1,3,1,1,9,9\n");
  host::Sequence b = a;
  b.name = "b";
  const std::vector<host::Sequence> first = host::shardOf({a, b}, host::parseShard("1/2"));
  const std::vector<host::Sequence> second = host::shardOf({a, b}, host::parseShard("2/2"));
  ASSERT_EQ(first.size(), 2U);
  EXPECT_EQ(first[0].targets.size() + first[1].targets.size() + second[0].targets.size() + second[1].targets.size(),
            6U);
  EXPECT_EQ(first[0].targets[1].name, "3");
  EXPECT_EQ(second[0].targets[0].name, "2");
  EXPECT_EQ(second[1].targets[0].name, "1");  // counted through all sequences
}

TEST(Shards, OfTheWrongFormAreRefused) {
  for (const char* text : {"", "1", "0/2", "3/2", "1/2x", "a/b", "1/"}) EXPECT_THROW(host::parseShard(text), HostError);
}

}  // namespace
