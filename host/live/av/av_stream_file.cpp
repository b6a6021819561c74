#include "av_stream_file.h"

#include <array>
#include <cstring>

#include "av_handles.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace live {
namespace {

constexpr AVRational kTick = {1, 90000};  // the clock of MPEG-TS
constexpr int kKeyFrameEvery = 25;

class AvStreamFile : public StreamFile {
 public:
  explicit AvStreamFile(const SenderRequest& request) : request_(request) {}
  ~AvStreamFile() override {
    AvStreamFile::close();
    sws_freeContext(scaler_);
    if (format_ != nullptr) {
      if (format_->pb != nullptr) avio_closep(&format_->pb);
      avformat_free_context(format_);
    }
  }
  AvStreamFile(const AvStreamFile&) = delete;
  AvStreamFile& operator=(const AvStreamFile&) = delete;

  bool open() {
    av_log_set_level(AV_LOG_QUIET);
    int result = avformat_alloc_output_context2(&format_, nullptr, "mpegts", request_.address.c_str());
    if (result < 0) return failed_("it cannot be made", result);
    if (!openEncoder_()) return false;
    video_ = avformat_new_stream(format_, nullptr);
    avcodec_parameters_from_context(video_->codecpar, encoder_.get());
    video_->time_base = kTick;
    data_ = avformat_new_stream(format_, nullptr);
    data_->codecpar->codec_type = AVMEDIA_TYPE_DATA;
    data_->codecpar->codec_id = AV_CODEC_ID_SMPTE_KLV;
    data_->codecpar->codec_tag = MKTAG('K', 'L', 'V', 'A');
    data_->time_base = kTick;
    result = avio_open(&format_->pb, request_.address.c_str(), AVIO_FLAG_WRITE);
    if (result < 0) return failed_("it cannot be written", result);
    result = avformat_write_header(format_, nullptr);
    if (result < 0) return failed_("it cannot be begun", result);
    begun_ = true;
    return true;
  }

  bool write(const std::uint8_t* bgr, std::size_t stride, const std::vector<std::uint8_t>& packet,
             double timeS) override {
    if (!begun_ || !fault_.empty()) return false;
    const auto stamp = static_cast<std::int64_t>(timeS * kTick.den + 0.5);
    if (!packet.empty() && !writePacket_(packet, stamp)) return false;
    if (av_frame_make_writable(frame_.get()) < 0) return failed_("memory", AVERROR(ENOMEM));
    const std::uint8_t* const in[4] = {bgr, nullptr, nullptr, nullptr};
    const int strides[4] = {static_cast<int>(stride), 0, 0, 0};
    sws_scale(scaler_, in, strides, 0, request_.height, frame_->data, frame_->linesize);
    frame_->pts = stamp;
    return encode_(frame_.get());
  }

  bool close() override {
    if (!begun_) return fault_.empty();
    begun_ = false;
    encode_(nullptr);
    const int ended = av_write_trailer(format_);
    if (ended < 0) failed_("its end cannot be written", ended);
    const int closed = avio_closep(&format_->pb);
    if (closed < 0) failed_("it cannot be closed", closed);
    return fault_.empty();
  }
  std::string fault() const override { return fault_; }

 private:
  bool failed_(const std::string& what, int error) {
    if (fault_.empty()) fault_ = what + ": " + avWords(error);
    return false;
  }

  /// H.264 where its encoder is, else MPEG-4, which the library always has.
  bool openEncoder_() {
    for (const char* const name : {"libx264", "mpeg4"}) {
      const AVCodec* const codec = avcodec_find_encoder_by_name(name);
      if (codec == nullptr) continue;
      encoder_.reset(avcodec_alloc_context3(codec));
      encoder_->width = request_.width;
      encoder_->height = request_.height;
      // MPEG-4 counts time in at most 16 bits a second.
      encoder_->time_base = codec->id == AV_CODEC_ID_MPEG4 ? AVRational{1, 1000} : kTick;
      encoder_->pix_fmt = AV_PIX_FMT_YUV420P;
      encoder_->gop_size = kKeyFrameEvery;
      encoder_->max_b_frames = 0;
      encoder_->bit_rate = static_cast<std::int64_t>(request_.width) * request_.height * 8;
      encoder_->thread_count = 1;
      av_opt_set(encoder_->priv_data, "preset", "veryfast", 0);
      av_opt_set(encoder_->priv_data, "tune", "zerolatency", 0);
      if (avcodec_open2(encoder_.get(), codec, nullptr) >= 0) return openFrame_();
    }
    fault_ = "there is no video encoder for it";
    return false;
  }

  bool openFrame_() {
    frame_->format = AV_PIX_FMT_YUV420P;
    frame_->width = request_.width;
    frame_->height = request_.height;
    scaler_ = sws_getContext(request_.width, request_.height, AV_PIX_FMT_BGR24, request_.width, request_.height,
                             AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (scaler_ == nullptr || av_frame_get_buffer(frame_.get(), 0) < 0) return failed_("memory", AVERROR(ENOMEM));
    return true;
  }

  bool writePacket_(const std::vector<std::uint8_t>& bytes, std::int64_t stamp) {
    if (av_new_packet(packet_.get(), static_cast<int>(bytes.size())) < 0) return failed_("memory", AVERROR(ENOMEM));
    std::memcpy(packet_->data, bytes.data(), bytes.size());
    packet_->stream_index = data_->index;
    packet_->pts = av_rescale_q(stamp, kTick, data_->time_base);
    packet_->dts = packet_->pts;
    const int written = av_interleaved_write_frame(format_, packet_.get());
    return written >= 0 || failed_("it cannot be written", written);
  }

  bool encode_(AVFrame* frame) {
    if (frame != nullptr) frame->pts = av_rescale_q(frame->pts, kTick, encoder_->time_base);
    const int sent = avcodec_send_frame(encoder_.get(), frame);
    if (sent < 0) return failed_("a picture cannot be encoded", sent);
    while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) {
      packet_->stream_index = video_->index;
      av_packet_rescale_ts(packet_.get(), encoder_->time_base, video_->time_base);
      const int written = av_interleaved_write_frame(format_, packet_.get());
      if (written < 0) return failed_("it cannot be written", written);
    }
    return true;
  }

  SenderRequest request_;
  std::string fault_;
  AVFormatContext* format_ = nullptr;
  AVStream* video_ = nullptr;
  AVStream* data_ = nullptr;
  AvOwned<AVCodecContext> encoder_;
  AvOwned<AVFrame> frame_{av_frame_alloc()};
  AvOwned<AVPacket> packet_{av_packet_alloc()};
  SwsContext* scaler_ = nullptr;
  bool begun_ = false;
};

}  // namespace

std::unique_ptr<StreamFile> createAvStreamFile(const SenderRequest& request, std::string& fault) {
  auto file = std::make_unique<AvStreamFile>(request);
  if (file->open()) return file;
  fault = file->fault();
  return nullptr;
}

}  // namespace live
