// Images in GPU memory against images in host memory: every operation of the seam, and what re-detection makes of them.
// Labelled `gpu`. Skips without a device, because there is nothing to compare then.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "gpu_image.h"
#include "image_backend.h"
#include "support/platform_scenes.h"

namespace {

constexpr double kScoreTolerance = 1e-3;  // the device correlates by a Fourier transform in single precision
constexpr int kMethod = cv::TM_CCOEFF_NORMED;

class GpuBackendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(imageBackendName()) != "cuda") {
      GTEST_SKIP() << "no CUDA device, or built without OpenCV's CUDA modules";
    }
  }

  GpuImage onDevice(const cv::Mat& pixels) const {
    GpuImage image;
    device_.upload(pixels, image);
    return image;
  }

  GpuImage onHost(const cv::Mat& pixels) const {
    GpuImage image;
    host_.upload(pixels, image);
    return image;
  }

  cv::Mat scoresOnDevice(const cv::Mat& image, const cv::Mat& templ) const {
    GpuImage result;
    device_.matchTemplate(onDevice(image), onDevice(templ), result, kMethod);
    return pixelsOf(device_, result);
  }

  cv::Mat scoresOnHost(const cv::Mat& image, const cv::Mat& templ) const {
    GpuImage result;
    host_.matchTemplate(onHost(image), onHost(templ), result, kMethod);
    return pixelsOf(host_, result);
  }

  static cv::Mat pixelsOf(const ImageBackend& backend, const GpuImage& image) {
    cv::Mat pixels;
    backend.download(image, pixels);
    return pixels;
  }

  void expectSameScores(const cv::Mat& image, const cv::Mat& templ) const {
    const cv::Mat device = scoresOnDevice(image, templ);
    const cv::Mat host = scoresOnHost(image, templ);
    ASSERT_EQ(device.size(), host.size());
    ASSERT_EQ(device.type(), CV_32FC1);
    EXPECT_LE(cv::norm(device, host, cv::NORM_INF), kScoreTolerance);
    expectSamePlace(device, host);
  }

  // Two places may tie within the tolerance; then each must score on the host what the other does.
  static void expectSamePlace(const cv::Mat& device, const cv::Mat& host) {
    cv::Point onDevice;
    cv::Point onHost;
    cv::minMaxLoc(device, nullptr, nullptr, nullptr, &onDevice);
    cv::minMaxLoc(host, nullptr, nullptr, nullptr, &onHost);
    EXPECT_NEAR(host.at<float>(onDevice), host.at<float>(onHost), 2 * kScoreTolerance);
  }

  const ImageBackend& device_ = imageBackend();
  HostImageBackend host_;
  cv::RNG random_{77};
};

cv::Mat noise(const cv::Size& size, cv::RNG& random) {
  cv::Mat pixels(size, CV_8UC1);
  random.fill(pixels, cv::RNG::UNIFORM, 0, 256);
  return pixels;
}

// Smooth shapes and a little noise: closer to a camera's picture than noise alone.
cv::Mat cameraLike(const cv::Size& size, cv::RNG& random) {
  cv::Mat grey;
  cv::cvtColor(drawn::colourCells(size, 24, {30, 220}, random), grey, cv::COLOR_BGR2GRAY);
  cv::GaussianBlur(grey, grey, {0, 0}, 3.0);
  cv::Mat grain(size, CV_8UC1);
  random.fill(grain, cv::RNG::UNIFORM, 0, 8);
  return grey + grain;
}

// cv::cuda::resize samples at x * factor where cv::resize centres its pixels: the device's rule, written out.
cv::Mat linearFromCorners(const cv::Mat& src, const cv::Size& size) {
  const double fx = static_cast<double>(src.cols) / size.width;
  const double fy = static_cast<double>(src.rows) / size.height;
  cv::Mat dst(size, CV_8UC1);
  for (int y = 0; y < size.height; ++y) {
    const int y1 = cvFloor(y * fy);
    const int y2 = std::min(y1 + 1, src.rows - 1);
    for (int x = 0; x < size.width; ++x) {
      const int x1 = cvFloor(x * fx);
      const int x2 = std::min(x1 + 1, src.cols - 1);
      const double u = x * fx - x1;
      const double v = y * fy - y1;
      const double top = (1 - u) * src.at<uchar>(y1, x1) + u * src.at<uchar>(y1, x2);
      const double bottom = (1 - u) * src.at<uchar>(y2, x1) + u * src.at<uchar>(y2, x2);
      dst.at<uchar>(y, x) = cv::saturate_cast<uchar>((1 - v) * top + v * bottom);
    }
  }
  return dst;
}

double largestDifference(const cv::Mat& a, const cv::Mat& b) {
  return cv::norm(a, b, cv::NORM_INF);
}

TEST_F(GpuBackendTest, BringsBackWhatWasUploaded) {
  for (const cv::Size& size : {cv::Size(1, 1), cv::Size(7, 3), cv::Size(1919, 1081), cv::Size(7680, 4320)}) {
    const cv::Mat pixels = noise(size, random_);
    const GpuImage image = onDevice(pixels);
    EXPECT_EQ(device_.size(image), size);
    EXPECT_EQ(device_.type(image), CV_8UC1);
    EXPECT_EQ(largestDifference(pixelsOf(device_, image), pixels), 0) << size;
  }
}

TEST_F(GpuBackendTest, UploadsPartsOfAPictureAndImagesThatChangeSize) {
  const cv::Mat pixels = noise({400, 300}, random_);
  GpuImage image = onDevice(pixels);
  for (const cv::Rect& part : {cv::Rect(10, 20, 64, 48), cv::Rect(0, 0, 400, 300), cv::Rect(399, 299, 1, 1)}) {
    device_.upload(pixels(part), image);
    ASSERT_EQ(device_.size(image), part.size());
    EXPECT_EQ(largestDifference(pixelsOf(device_, image), pixels(part)), 0);
  }
}

TEST_F(GpuBackendTest, AnEmptyPictureGivesAnEmptyImage) {
  GpuImage image = onDevice(noise({32, 32}, random_));
  device_.upload(cv::Mat(), image);
  EXPECT_TRUE(device_.empty(image));
  EXPECT_TRUE(pixelsOf(device_, image).empty());
  EXPECT_TRUE(device_.empty(device_.clone(image)));
}

TEST_F(GpuBackendTest, MakesTheSameGrey) {
  const cv::Mat bgr = drawn::colourCells({641, 361}, 5, {0, 256}, random_);
  GpuImage onDevice;
  GpuImage onHost;
  device_.uploadGrey(bgr, onDevice);
  host_.uploadGrey(bgr, onHost);
  EXPECT_EQ(largestDifference(pixelsOf(device_, onDevice), pixelsOf(host_, onHost)), 0);
}

TEST_F(GpuBackendTest, AViewSharesPixelsAndACloneDoesNot) {
  const cv::Mat before = noise({200, 100}, random_);
  const cv::Mat after = noise({200, 100}, random_);
  const cv::Rect part(31, 17, 64, 40);
  GpuImage image = onDevice(before);
  const GpuImage view = device_.region(image, part);
  const GpuImage copy = device_.clone(view);
  device_.upload(after, image);
  EXPECT_EQ(largestDifference(pixelsOf(device_, view), after(part)), 0);
  EXPECT_EQ(largestDifference(pixelsOf(device_, copy), before(part)), 0);
}

// The image that is given a smaller picture keeps its memory only where no view looks at it.
TEST_F(GpuBackendTest, ASmallerPictureDoesNotShineThroughAView) {
  const cv::Mat before = noise({200, 100}, random_);
  GpuImage image = onDevice(before);
  const GpuImage view = device_.region(image, {0, 0, 200, 100});
  device_.upload(noise({50, 40}, random_), image);
  EXPECT_EQ(largestDifference(pixelsOf(device_, view), before), 0);
}

TEST_F(GpuBackendTest, ShrinksByAreaAsTheHostDoes) {
  const cv::Mat pixels = cameraLike({1920, 1080}, random_);
  for (const double factor : {0.5, 0.25, 320.0 / 1080}) {
    GpuImage small;
    GpuImage reference;
    device_.resize(onDevice(pixels), small, {}, factor, factor, cv::INTER_AREA);
    host_.resize(onHost(pixels), reference, {}, factor, factor, cv::INTER_AREA);
    const cv::Mat device = pixelsOf(device_, small);
    const cv::Mat host = pixelsOf(host_, reference);
    ASSERT_EQ(device.size(), host.size());
    // The last row and column may cover pixels beyond the picture, which the device counts as black.
    const cv::Rect inner(0, 0, device.cols - 1, device.rows - 1);
    EXPECT_LE(largestDifference(device(inner), host(inner)), 1) << factor;
  }
}

TEST_F(GpuBackendTest, ScalesBilinearlyByTheDevicesRule) {
  const cv::Mat pixels = cameraLike({64, 48}, random_);
  for (const cv::Size& size : {cv::Size(58, 43), cv::Size(64, 48), cv::Size(70, 53), cv::Size(5, 5)}) {
    GpuImage scaled;
    device_.resize(onDevice(pixels), scaled, size, 0, 0, cv::INTER_LINEAR);
    ASSERT_EQ(device_.size(scaled), size);
    EXPECT_LE(largestDifference(pixelsOf(device_, scaled), linearFromCorners(pixels, size)), 1) << size;
  }
}

TEST_F(GpuBackendTest, ScalesAViewAsItsCopy) {
  const cv::Mat pixels = cameraLike({300, 200}, random_);
  const cv::Rect part(40, 30, 100, 80);
  const GpuImage image = onDevice(pixels);
  for (const cv::Size& size : {cv::Size(50, 40), cv::Size(130, 100)}) {
    GpuImage ofView;
    GpuImage ofCopy;
    device_.resize(device_.region(image, part), ofView, size, 0, 0, cv::INTER_LINEAR);
    device_.resize(onDevice(pixels(part).clone()), ofCopy, size, 0, 0, cv::INTER_LINEAR);
    EXPECT_LE(largestDifference(pixelsOf(device_, ofView), pixelsOf(device_, ofCopy)), 1) << size;
  }
}

TEST_F(GpuBackendTest, ScoresNoiseAsTheHostDoes) {
  const cv::Mat image = noise({320, 240}, random_);
  expectSameScores(image, image({100, 80, 24, 16}));
  expectSameScores(image, noise({24, 16}, random_));
}

TEST_F(GpuBackendTest, ScoresPicturesAsTheHostDoes) {
  const cv::Mat image = cameraLike({569, 320}, random_);
  expectSameScores(image, image({300, 100, 48, 40}));
  expectSameScores(image, image({0, 0, 12, 10}));
  expectSameScores(image, image({400, 20, 150, 280}));
}

TEST_F(GpuBackendTest, ScoresTinyAndHugeImagesAsTheHostDoes) {
  const cv::Mat tiny = noise({5, 5}, random_);
  expectSameScores(tiny, tiny);
  expectSameScores(noise({64, 5}, random_), tiny);
  const cv::Mat huge = cameraLike({3840, 2160}, random_);
  expectSameScores(huge, huge({2500, 1500, 96, 128}));
}

TEST_F(GpuBackendTest, AFlatTemplateScoresNothing) {
  const cv::Mat image = cameraLike({320, 240}, random_);
  for (const int level : {0, 128, 255}) {
    const cv::Mat flat(20, 20, CV_8UC1, cv::Scalar::all(level));
    EXPECT_LE(cv::norm(scoresOnDevice(image, flat), cv::NORM_INF), kScoreTolerance) << level;
    EXPECT_EQ(cv::norm(scoresOnHost(image, flat), cv::NORM_INF), 0) << level;
  }
}

TEST_F(GpuBackendTest, AFlatImageHoldsNothing) {
  const cv::Mat flat(120, 160, CV_8UC1, cv::Scalar::all(90));
  expectSameScores(flat, noise({16, 16}, random_));
}

TEST_F(GpuBackendTest, ScoresAViewAsItsCopy) {
  const cv::Mat pixels = cameraLike({640, 360}, random_);
  const cv::Rect part(101, 57, 200, 200);
  const cv::Mat templ = pixels({150, 100, 40, 32}).clone();
  const GpuImage image = onDevice(pixels);
  GpuImage ofView;
  device_.matchTemplate(device_.region(image, part), onDevice(templ), ofView, kMethod);
  EXPECT_LE(largestDifference(pixelsOf(device_, ofView), scoresOnHost(pixels(part).clone(), templ)), kScoreTolerance);
}

TEST_F(GpuBackendTest, ATemplateLargerThanTheImageThrowsAndTheNextMatchWorks) {
  GpuImage result;
  EXPECT_THROW(
      device_.matchTemplate(onDevice(noise({10, 10}, random_)), onDevice(noise({20, 20}, random_)), result, kMethod),
      cv::Exception);
  const cv::Mat image = noise({64, 64}, random_);
  expectSameScores(image, image({8, 8, 16, 16}));
}

TEST_F(GpuBackendTest, OneMapServesScoresOfSeveralSizes) {
  const cv::Mat pixels = cameraLike({320, 240}, random_);
  GpuImage result;
  for (const cv::Size& size : {cv::Size(20, 20), cv::Size(60, 50), cv::Size(18, 18), cv::Size(200, 200)}) {
    const cv::Mat templ = pixels(cv::Rect({30, 20}, size)).clone();
    device_.matchTemplate(onDevice(pixels), onDevice(templ), result, kMethod);
    EXPECT_LE(largestDifference(pixelsOf(device_, result), scoresOnHost(pixels, templ)), kScoreTolerance) << size;
  }
}

// The process has one matcher. Two threads whose images differ in type would replace it under each other's hands.
TEST_F(GpuBackendTest, TwoThreadsShareTheMatcher) {
  struct Job {
    cv::Mat image;
    cv::Mat templ;
    double worst = 0;
  };
  std::array<Job, 2> jobs;
  jobs[0].image = cameraLike({320, 240}, random_);
  jobs[1].image = drawn::colourCells({200, 150}, 7, {0, 256}, random_);
  for (Job& job : jobs) job.templ = job.image({40, 30, 32, 24}).clone();
  std::vector<std::thread> threads;
  for (Job& job : jobs) {
    threads.emplace_back([&job, this] {
      const cv::Mat expected = scoresOnHost(job.image, job.templ);
      for (int i = 0; i < 50; ++i) {
        job.worst = std::max(job.worst, largestDifference(scoresOnDevice(job.image, job.templ), expected));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const Job& job : jobs) EXPECT_LE(job.worst, kScoreTolerance);
}

// Runs scene_boxes and keeps the words of its re-detections, or its boxes.
struct Answers {
  std::vector<std::string> outcomes;
  std::vector<std::string> boxes;
};

Answers playScenes(const std::string& environment) {
  Answers answers;
  const std::string command = environment + " " + CSRT_SCENE_BOXES + " --outcomes";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::array<char, 1024> line{};
  while (pipe && std::fgets(line.data(), static_cast<int>(line.size()), pipe.get()) != nullptr) {
    const std::string text(line.data());
    const auto word = text.find("[timing-");
    if (word != std::string::npos) answers.outcomes.push_back(text.substr(word, text.find(']', word) - word));
    if (text.find(" box ") != std::string::npos || text.find(" none") != std::string::npos) {
      answers.boxes.push_back(text);
    }
  }
  return answers;
}

// A process that sees no device searches in host memory: the same program answers for both.
TEST_F(GpuBackendTest, ReDetectionEndsAsOnTheHost) {
  const Answers device = playScenes("");
  const Answers host = playScenes("CUDA_VISIBLE_DEVICES=");
  ASSERT_FALSE(host.outcomes.empty());
  EXPECT_EQ(device.outcomes, host.outcomes);
  ASSERT_EQ(device.boxes.size(), host.boxes.size());
  for (std::size_t i = 0; i < host.boxes.size(); ++i) {
    std::istringstream one(device.boxes[i]);
    std::istringstream other(host.boxes[i]);
    std::string word;
    std::string expected;
    while (other >> expected && one >> word) {
      if (expected.find_first_not_of("-0123456789") != std::string::npos) {
        EXPECT_EQ(word, expected);
      } else {
        EXPECT_NEAR(std::stoi(word), std::stoi(expected), 1) << host.boxes[i];
      }
    }
  }
}

}  // namespace
