// Images for matching: what goes in comes out, copies share, clones do not, views are views.
#include "gpu_image.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "support/textures.h"

namespace {

bool same(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

cv::Mat greyPicture(const cv::Size& size, std::uint64_t seed = 3) {
  cv::Mat grey;
  cv::cvtColor(textured::texture(size, 6, seed), grey, cv::COLOR_BGR2GRAY);
  return grey;
}

GpuImage uploaded(const cv::Mat& pixels) {
  GpuImage image;
  image.upload(pixels);
  return image;
}

TEST(GpuImage, StartsEmpty) {
  const GpuImage image;
  EXPECT_TRUE(image.empty());
  EXPECT_EQ(image.size(), cv::Size(0, 0));
  EXPECT_TRUE(image.download().empty());
}

TEST(GpuImage, GivesBackWhatWasUploaded) {
  const cv::Mat grey = greyPicture({37, 23});
  const GpuImage image = uploaded(grey);
  EXPECT_FALSE(image.empty());
  EXPECT_EQ(image.cols(), 37);
  EXPECT_EQ(image.rows(), 23);
  EXPECT_EQ(image.type(), CV_8UC1);
  EXPECT_TRUE(same(image.download(), grey));
}

TEST(GpuImage, UploadCopiesThePixels) {
  cv::Mat grey = greyPicture({20, 10});
  const cv::Mat before = grey.clone();
  const GpuImage image = uploaded(grey);
  grey.setTo(0);
  EXPECT_TRUE(same(image.download(), before));
}

TEST(GpuImage, UploadsPartOfALargerPicture) {
  const cv::Mat grey = greyPicture({64, 48});
  const cv::Mat part = grey(cv::Rect(11, 7, 20, 30));
  EXPECT_TRUE(same(uploaded(part).download(), part));
}

TEST(GpuImage, UploadGreyIsTheGreyOfOpenCv) {
  const cv::Mat bgr = textured::texture({61, 33}, 5, 9);
  cv::Mat grey;
  cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
  GpuImage image;
  image.uploadGrey(bgr);
  EXPECT_TRUE(same(image.download(), grey));
  image.uploadGrey(bgr(cv::Rect(3, 4, 20, 20)));
  EXPECT_TRUE(same(image.download(), grey(cv::Rect(3, 4, 20, 20))));
}

TEST(GpuImage, KeepsWhatItHoldsWhenAPictureIsRefused) {
  const cv::Mat colour = textured::texture({40, 30}, 3, 5);
  GpuImage image;
  image.uploadGrey(colour);
  const cv::Mat before = image.download().clone();
  EXPECT_THROW(image.uploadGrey(cv::Mat(20, 50, CV_8UC1, cv::Scalar(7))), cv::Exception) << "no colours in it";
  ASSERT_EQ(cv::Size(image.cols(), image.rows()), before.size());
  EXPECT_EQ(cv::countNonZero(image.download() != before), 0);
}

TEST(GpuImage, UploadGreyUsesItsMemoryAgainForOtherSizes) {
  if (std::string(imageBackendName()) != "host") GTEST_SKIP() << "memory of the device is not looked at here";
  GpuImage image;
  image.uploadGrey(textured::texture({60, 60}, 6, 3));
  const void* memory = image.download().data;
  for (const cv::Size& size : {cv::Size(61, 60), cv::Size(58, 63), cv::Size(20, 10), cv::Size(64, 64)}) {
    const cv::Mat bgr = textured::texture(size, 6, 4);
    cv::Mat grey;
    cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
    image.uploadGrey(bgr);
    EXPECT_TRUE(same(image.download(), grey)) << size;
    EXPECT_EQ(image.download().data, memory) << size;
  }
}

TEST(GpuImage, UploadGreyOfAnotherSizeLeavesSharedPixelsAlone) {
  GpuImage image;
  image.uploadGrey(textured::texture({60, 60}, 6, 3));
  const GpuImage copy = image;
  const GpuImage view = image.region({5, 5, 20, 20});
  const cv::Mat before = copy.download().clone();
  image.uploadGrey(textured::texture({50, 50}, 6, 4));
  EXPECT_TRUE(same(copy.download(), before));
  EXPECT_TRUE(same(view.download(), before(cv::Rect(5, 5, 20, 20))));
  EXPECT_EQ(image.size(), cv::Size(50, 50));
}

TEST(GpuImage, DownloadsIntoMemoryThatIsKept) {
  const cv::Mat grey = greyPicture({20, 10}, 3);
  cv::Mat out(5, 5, CV_8UC3);
  uploaded(grey).download(out);
  EXPECT_TRUE(same(out, grey));
  const cv::Mat other = greyPicture({20, 10}, 4);
  uploaded(other).download(out);
  EXPECT_TRUE(same(out, other));
}

TEST(GpuImage, CloneHasPixelsOfItsOwn) {
  const cv::Mat grey = greyPicture({20, 10});
  GpuImage image = uploaded(grey);
  const GpuImage clone = image.clone();
  image.upload(cv::Mat::zeros(grey.size(), CV_8UC1));
  EXPECT_TRUE(same(clone.download(), grey));
}

TEST(GpuImage, RegionIsAViewThatSeesLaterPixels) {
  GpuImage image = uploaded(greyPicture({40, 30}, 3));
  const GpuImage view = image.region({5, 6, 10, 12});
  const cv::Mat later = greyPicture({40, 30}, 4);
  image.upload(later);  // same size and type: the memory stays
  EXPECT_EQ(view.size(), cv::Size(10, 12));
  EXPECT_TRUE(same(view.download(), later(cv::Rect(5, 6, 10, 12))));
}

TEST(GpuImage, CloneOfARegionSurvivesTheImage) {
  const cv::Mat grey = greyPicture({40, 30});
  GpuImage image = uploaded(grey);
  const GpuImage patch = image.region({5, 6, 10, 12}).clone();
  image.release();
  EXPECT_TRUE(image.empty());
  EXPECT_TRUE(same(patch.download(), grey(cv::Rect(5, 6, 10, 12))));
}

TEST(GpuImage, RegionOutsideTheImageIsRefused) {
  const GpuImage image = uploaded(greyPicture({40, 30}));
  EXPECT_THROW(image.region({35, 0, 10, 10}), cv::Exception);
}

TEST(ResizeImage, ByFactorIsOpenCvsAreaShrink) {
  const cv::Mat grey = greyPicture({321, 203});
  for (const double k : {0.5, 0.25, 0.2963, 1.0 / 3.0}) {
    cv::Mat expected;
    cv::resize(grey, expected, {}, k, k, cv::INTER_AREA);
    GpuImage out;
    resizeImage(uploaded(grey), out, {}, k, k, cv::INTER_AREA);
    ASSERT_EQ(out.size(), expected.size()) << k;
    EXPECT_LE(cv::norm(out.download(), expected, cv::NORM_INF), 1.0) << k;
  }
}

TEST(ResizeImage, ToASizeIsOpenCvsBilinear) {
  if (std::string(imageBackendName()) != "host") GTEST_SKIP() << "OpenCV samples at other places on the device";
  const cv::Mat grey = greyPicture({50, 40});
  cv::Mat expected;
  cv::resize(grey, expected, {45, 36}, 0.0, 0.0, cv::INTER_LINEAR);
  GpuImage out;
  resizeImage(uploaded(grey), out, {45, 36}, 0.0, 0.0, cv::INTER_LINEAR);
  ASSERT_EQ(out.size(), cv::Size(45, 36));
  EXPECT_LE(cv::norm(out.download(), expected, cv::NORM_INF), 1.0);
}

TEST(ImageBackend, NamesTheMemoryItUses) {
  const std::string name = imageBackendName();
  EXPECT_TRUE(name == "host" || name == "cuda") << name;
}

}  // namespace
