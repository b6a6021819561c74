#include "live/av/av_receiver.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "live/av/av_handles.h"
#include "live/picture_converter.h"

namespace live {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kProbeBytes = "500000";
constexpr const char* kProbeMicroseconds = "500000";
constexpr double kSilenceS = 0.8;
constexpr int kMostDamage = 200;  // packets in a row that give nothing: the stream is no longer what it was

Clock::duration secondsToDuration(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

double secondsOf(std::int64_t stamp, AVRational unit) {
  return stamp == AV_NOPTS_VALUE ? kUnknown : static_cast<double>(stamp) * av_q2d(unit);
}

std::string addressFor(const Address& address) {
  if (address.kind == AddressKind::Stdin) return "pipe:0";
  if (address.kind != AddressKind::Udp) return address.text;
  // A large buffer of the system's, and one of the library's own thread: nothing is lost while a picture is decoded.
  const char* const more = address.text.find('?') == std::string::npos ? "?" : "&";
  return address.text + more + "fifo_size=50000&overrun_nonfatal=1&buffer_size=4000000&reuse=1";
}

class AvReceiver : public Receiver {
 public:
  explicit AvReceiver(const ReceiverRequest& request) : request_(request) {
    av_log_set_level(AV_LOG_QUIET);  // what matters is said in the reason
    limit_(request.connectLimitS);
    open_();
  }
  ~AvReceiver() override {
    limit_(0.5);
    if (format_ != nullptr) avformat_close_input(&format_);
  }
  AvReceiver(const AvReceiver&) = delete;
  AvReceiver& operator=(const AvReceiver&) = delete;

  Received next(double waitS) override {
    Received received;
    if (!fault_.empty()) {
      received.event = Received::Event::Failed;
      received.reason = fault_;
      received.refused = refused_;
      return received;
    }
    // The library is interrupted only after a longer silence: an interruption cuts the packet it is putting together.
    limit_(std::max(waitS, kSilenceS));
    const Clock::time_point enough = Clock::now() + secondsToDuration(waitS);
    while (received.event == Received::Event::Nothing && Clock::now() < enough) step_(received);
    return received;
  }

  std::string decoder() const override { return decoder_ == nullptr ? "" : decoder_->codec->name; }
  long damaged() const override { return damaged_; }

 private:
  /// Asked by the library while it waits: true ends the wait.
  static int isOver_(void* data) {
    const auto* const self = static_cast<const AvReceiver*>(data);
    const bool stopped = self->request_.stop != nullptr && *self->request_.stop;
    return stopped || Clock::now() > self->deadline_ ? 1 : 0;
  }

  void limit_(double seconds) { deadline_ = Clock::now() + secondsToDuration(seconds); }

  void failOpening_(const std::string& what, int error) {
    refused_ = error == AVERROR_HTTP_UNAUTHORIZED || error == AVERROR_HTTP_FORBIDDEN;
    fault_ = refused_ ? "the camera refused the name or the password" : what + ": " + avWords(error);
    if (error == AVERROR_EXIT) fault_ = what + ": nothing came";
  }

  void open_() {
    format_ = avformat_alloc_context();
    format_->interrupt_callback = {isOver_, this};
    // What was read to understand the stream is old by then; only standard input has nothing before its beginning.
    if (request_.address.kind != AddressKind::Stdin) format_->flags |= AVFMT_FLAG_NOBUFFER;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "probesize", kProbeBytes, 0);
    av_dict_set(&options, "analyzeduration", kProbeMicroseconds, 0);
    av_dict_set(&options, "protocol_whitelist", "file,pipe,udp,rtp,rtsp,tcp,http,https,tls,crypto", 0);
    if (request_.address.kind == AddressKind::Rtsp) {
      av_dict_set(&options, "rtsp_transport", request_.overUdp ? "udp" : "tcp", 0);
      av_dict_set(&options, "reorder_queue_size", "0", 0);
      av_dict_set(&options, "max_delay", "0", 0);
    }
    const int opened = avformat_open_input(&format_, addressFor(request_.address).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (opened < 0) return failOpening_("it cannot be opened", opened);
    const int known = avformat_find_stream_info(format_, nullptr);
    if (known < 0) return failOpening_("the stream cannot be understood", known);
    const AVCodec* codec = nullptr;
    video_ = av_find_best_stream(format_, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (video_ == AVERROR_DECODER_NOT_FOUND) return failOpening_("there is no decoder for its video", video_);
    if (video_ < 0) return failOpening_("it carries no video", video_);
    openDecoder_(codec);
  }

  void openDecoder_(const AVCodec* codec) {
    decoder_.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder_.get(), format_->streams[video_]->codecpar);
    decoder_->flags |= AV_CODEC_FLAG_LOW_DELAY;
    decoder_->thread_type = FF_THREAD_SLICE;  // threads by frame hand a picture out only when the next ones came
    decoder_->thread_count = 0;
    const int opened = avcodec_open2(decoder_.get(), codec, nullptr);
    if (opened < 0) failOpening_("the decoder does not start", opened);
  }

  /// A picture that is already decoded, or one more packet.
  void step_(Received& received) {
    if (tryPicture_(received)) return;
    const int read = av_read_frame(format_, packet_.get());
    if (read == AVERROR_EXIT && format_->pb != nullptr) {  // our own interruption, not the stream's end
      format_->pb->eof_reached = 0;
      format_->pb->error = 0;
    }
    if (read == AVERROR_EXIT || read == AVERROR(EAGAIN)) return;
    if (read == AVERROR_EOF) {
      received.event = Received::Event::Ended;
    } else if (read < 0) {
      received.event = Received::Event::Failed;
      received.reason = avWords(read);
    } else {
      takePacket_(received);
      av_packet_unref(packet_.get());
    }
  }

  void takePacket_(Received& received) {
    const AVStream* const stream = format_->streams[packet_->stream_index];
    if (stream->codecpar->codec_id == AV_CODEC_ID_SMPTE_KLV) {
      const double streamS = secondsOf(packet_->pts, stream->time_base);
      // Without a time stamp of its own a packet belongs to the video that came just before it.
      received.packets.push_back(
          {{packet_->data, packet_->data + packet_->size}, streamS == streamS ? streamS : lastS_});
      return;
    }
    if (packet_->stream_index != video_) return;
    lastS_ = secondsOf(packet_->pts, stream->time_base);
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0) countDamage_();
    if (avcodec_send_packet(decoder_.get(), packet_.get()) < 0) {
      countDamage_();
      if (++inARow_ > kMostDamage) {
        received.event = Received::Event::Failed;
        received.reason = "its video can no longer be decoded";
      }
    }
  }

  /// Before the first picture nothing is damaged: who joins a stream waits for its next key frame.
  void countDamage_() { damaged_ += pictures_ > 0 ? 1 : 0; }

  bool tryPicture_(Received& received) {
    if (avcodec_receive_frame(decoder_.get(), frame_.get()) < 0) return false;
    inARow_ = 0;
    if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame_->decode_error_flags != 0) countDamage_();
    ++pictures_;
    ReceivedPicture& picture = received.picture;
    picture.width = frame_->width;
    picture.height = frame_->height;
    picture.bgr = converter_.toBgr(static_cast<AVPixelFormat>(frame_->format), frame_->width, frame_->height,
                                   frame_->data, frame_->linesize);
    picture.stride = converter_.stride();
    picture.streamS = secondsOf(frame_->best_effort_timestamp, format_->streams[video_]->time_base);
    received.event = picture.bgr == nullptr ? Received::Event::Failed : Received::Event::Picture;
    if (picture.bgr == nullptr) received.reason = "a picture cannot be converted";
    return true;
  }

  ReceiverRequest request_;
  Clock::time_point deadline_;
  std::string fault_;
  bool refused_ = false;
  AVFormatContext* format_ = nullptr;
  int video_ = -1;
  AvOwned<AVCodecContext> decoder_;
  AvOwned<AVPacket> packet_{av_packet_alloc()};
  AvOwned<AVFrame> frame_{av_frame_alloc()};
  PictureConverter converter_;
  double lastS_ = kUnknown;
  long damaged_ = 0;
  long pictures_ = 0;
  int inARow_ = 0;
};

}  // namespace

std::unique_ptr<Receiver> openAvReceiver(const ReceiverRequest& request) {
  return std::make_unique<AvReceiver>(request);
}

}  // namespace live
