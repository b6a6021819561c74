extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <utility>

#include "base/worker_pool.h"
#include "picture/h264_writer.h"

namespace host {
namespace {

constexpr int kMostThreads = 4;
constexpr int kLargestRate = 1001000;

struct FreeFormat {
  void operator()(AVFormatContext* format) const {
    if (format->pb != nullptr) avio_closep(&format->pb);
    avformat_free_context(format);
  }
};
struct FreeCodec {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeScaler {
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

/// The file's kind by its ending, with one track; null: none that holds H.264.
std::unique_ptr<AVFormatContext, FreeFormat> formatFor(const std::string& path) {
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, nullptr, nullptr, path.c_str()) < 0 || raw == nullptr) return nullptr;
  std::unique_ptr<AVFormatContext, FreeFormat> format(raw);
  const bool holds = avformat_query_codec(format->oformat, AV_CODEC_ID_H264, FF_COMPLIANCE_NORMAL) == 1;
  return holds ? std::move(format) : nullptr;
}

std::unique_ptr<AVCodecContext, FreeCodec> openCodec(cv::Size size, double fps, bool headerInFile) {
  const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
  if (encoder == nullptr) return nullptr;
  std::unique_ptr<AVCodecContext, FreeCodec> codec(avcodec_alloc_context3(encoder));
  codec->width = size.width;
  codec->height = size.height;
  codec->pix_fmt = AV_PIX_FMT_YUV420P;
  codec->framerate = av_d2q(fps, kLargestRate);
  codec->time_base = av_inv_q(codec->framerate);
  codec->thread_count = std::min(usableThreads(), kMostThreads);
  if (headerInFile) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  // Few frames are held back, and threads share one frame: at 1920 x 1080 80 MB instead of 450, whatever the number of
  // processors. The quality asked for is that of the encoder's defaults. Its own messages are for nobody here.
  av_opt_set(codec->priv_data, "preset", "veryfast", 0);
  av_opt_set(codec->priv_data, "crf", "23", 0);
  av_opt_set(codec->priv_data, "x264-params", "rc-lookahead=4:sync-lookahead=0:bframes=0:sliced-threads=1:log=-1", 0);
  return avcodec_open2(codec.get(), encoder, nullptr) == 0 ? std::move(codec) : nullptr;
}

class LibavWriter : public H264Writer {
 public:
  /// False: this file cannot be written.
  bool begin(const std::string& path, cv::Size size, double fps) {
    format_ = formatFor(path);
    if (!format_) return false;
    codec_ = openCodec(size, fps, (format_->oformat->flags & AVFMT_GLOBALHEADER) != 0);
    if (!codec_) return false;
    track_ = avformat_new_stream(format_.get(), nullptr);
    if (track_ == nullptr || avcodec_parameters_from_context(track_->codecpar, codec_.get()) < 0) return false;
    track_->time_base = codec_->time_base;
    track_->avg_frame_rate = codec_->framerate;
    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    frame_->format = codec_->pix_fmt;
    frame_->width = size.width;
    frame_->height = size.height;
    if (av_frame_get_buffer(frame_.get(), 0) < 0) return false;
    scaler_.reset(sws_getContext(size.width, size.height, AV_PIX_FMT_BGR24, size.width, size.height, codec_->pix_fmt,
                                 SWS_BICUBIC, nullptr, nullptr, nullptr));
    return scaler_ != nullptr && avio_open(&format_->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 &&
           avformat_write_header(format_.get(), nullptr) >= 0;
  }

  bool write(const cv::Mat& bgr) override {
    if (av_frame_make_writable(frame_.get()) < 0) return false;
    const unsigned char* const rows[] = {bgr.data};
    const int steps[] = {static_cast<int>(bgr.step)};
    sws_scale(scaler_.get(), rows, steps, 0, bgr.rows, frame_->data, frame_->linesize);
    frame_->pts = next_++;
    return avcodec_send_frame(codec_.get(), frame_.get()) == 0 && writePackets_();
  }

  bool close() override {
    const bool flushed = avcodec_send_frame(codec_.get(), nullptr) == 0 && writePackets_();
    const bool ended = av_write_trailer(format_.get()) == 0;
    return avio_closep(&format_->pb) == 0 && flushed && ended;
  }

 private:
  bool writePackets_() {
    while (true) {
      const int got = avcodec_receive_packet(codec_.get(), packet_.get());
      if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return true;
      if (got < 0) return false;
      av_packet_rescale_ts(packet_.get(), codec_->time_base, track_->time_base);
      packet_->stream_index = track_->index;
      if (packet_->duration == 0) packet_->duration = av_rescale_q(1, codec_->time_base, track_->time_base);
      if (av_interleaved_write_frame(format_.get(), packet_.get()) < 0) return false;
    }
  }

  std::unique_ptr<AVFormatContext, FreeFormat> format_;
  std::unique_ptr<AVCodecContext, FreeCodec> codec_;
  std::unique_ptr<AVFrame, FreeFrame> frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  std::unique_ptr<SwsContext, FreeScaler> scaler_;
  AVStream* track_ = nullptr;  ///< Of format_.
  long next_ = 0;
};

}  // namespace

std::unique_ptr<H264Writer> H264Writer::open(const std::string& path, cv::Size frameSize, double fps) {
  const int level = av_log_get_level();
  av_log_set_level(AV_LOG_QUIET);  // whoever tries next says what is wrong
  auto writer = std::make_unique<LibavWriter>();
  const bool open = writer->begin(path, frameSize, fps);
  av_log_set_level(level);
  return open ? std::move(writer) : nullptr;
}

}  // namespace host
