#include "live/gst/gst_receiver.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <mutex>
#include <utility>

#include "live/gst/gst_handles.h"
#include "live/picture_converter.h"

namespace live {
namespace {

constexpr double kNanosecond = 1e-9;
constexpr double kNtpToUnixS = 2208988800.0;  // from 1900 to 1970
constexpr std::size_t kStampsKept = 128;
constexpr double kOldestHeldS = 5.0;

struct Format {
  const char* gst;
  AVPixelFormat av;
};

constexpr std::array<Format, 14> kFormats = {{{"I420", AV_PIX_FMT_YUV420P},
                                              {"YV12", AV_PIX_FMT_YUV420P},  // its planes are asked for by component
                                              {"NV12", AV_PIX_FMT_NV12},
                                              {"Y42B", AV_PIX_FMT_YUV422P},
                                              {"Y444", AV_PIX_FMT_YUV444P},
                                              {"YUY2", AV_PIX_FMT_YUYV422},
                                              {"UYVY", AV_PIX_FMT_UYVY422},
                                              {"BGR", AV_PIX_FMT_BGR24},
                                              {"RGB", AV_PIX_FMT_RGB24},
                                              {"BGRx", AV_PIX_FMT_BGR0},
                                              {"BGRA", AV_PIX_FMT_BGRA},
                                              {"RGBx", AV_PIX_FMT_RGB0},
                                              {"GRAY8", AV_PIX_FMT_GRAY8},
                                              {"I420_10LE", AV_PIX_FMT_YUV420P10LE}}};

std::string capsText() {
  std::string text = "video/x-raw,format=(string){";
  for (const Format& format : kFormats) text += std::string(format.gst) + ",";
  text.back() = '}';
  return text;
}

AVPixelFormat formatOf(const GstVideoInfo& info) {
  const std::string name = gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&info));
  // The range is a part of the format here: without it greys of full-range JPEG cameras would come out too contrasty.
  const bool full = info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
  if (full && (name == "I420" || name == "YV12")) return AV_PIX_FMT_YUVJ420P;
  if (full && name == "Y42B") return AV_PIX_FMT_YUVJ422P;
  if (full && name == "Y444") return AV_PIX_FMT_YUVJ444P;
  for (const Format& format : kFormats) {
    if (name == format.gst) return format.av;
  }
  return AV_PIX_FMT_NONE;
}

/// A text as a GStreamer description takes it.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

/// The description of everything before the decoder; for a pipeline of the user's the whole of it.
std::string descriptionOf(const ReceiverRequest& request) {
  const Address& address = request.address;
  const std::string tail = " ! decodebin name=decode";
  switch (address.kind) {
    case AddressKind::Rtsp:
      return "rtspsrc name=rtsp location=" + quoted(address.text) + " latency=0 add-reference-timestamp-meta=true" +
             " protocols=" + (request.overUdp ? "udp" : "tcp") + " tcp-timeout=3000000 timeout=3000000" +
             " teardown-timeout=100000000 decodebin name=decode";
    case AddressKind::Device:
      return "v4l2src device=" + quoted(address.text) + tail;
    case AddressKind::Rtp:
      return "udpsrc address=" + quoted(address.host.empty() ? "0.0.0.0" : address.host) +
             " port=" + std::to_string(address.port) +
             " caps=\"application/"
             "x-rtp,media=(string)video,clock-rate=(int)90000,payload=(int)96,encoding-name=(string)" +
             address.codec + "\" ! rtpjitterbuffer latency=0" + tail;
    case AddressKind::Udp:
      return "udpsrc address=" + quoted(address.host.empty() ? "0.0.0.0" : address.host) +
             " port=" + std::to_string(address.port) + tail;
    case AddressKind::Http:
      return "souphttpsrc is-live=true timeout=5 location=" + quoted(address.text) + tail;
    case AddressKind::Sdp:
      return "filesrc location=" + quoted(address.text) + " ! sdpdemux latency=0" + tail;
    case AddressKind::Stdin:
      return "fdsrc fd=0" + tail;
    default:
      return address.text;
  }
}

/// Ends in a sentence's place: no line feeds, no full stop, no password.
std::string oneSentence(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  while (!text.empty() && (text.back() == '.' || text.back() == ' ')) text.pop_back();
  return withoutPassword(text);
}

class GstReceiver : public Receiver {
 public:
  explicit GstReceiver(const ReceiverRequest& request) : request_(request) { build_(); }

  ~GstReceiver() override {
    if (pipeline_ == nullptr) return;
    // The pads' callbacks use this object: they end with the pipeline.
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }
  GstReceiver(const GstReceiver&) = delete;
  GstReceiver& operator=(const GstReceiver&) = delete;

  Received next(double waitS) override {
    Received received;
    if (!fault_.empty()) return failed_(fault_, false);
    const auto wait = static_cast<GstClockTime>(waitS * 1e9);
    const GstOwned<GstSample> sample(gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), wait));
    if (sample != nullptr) {
      if (takeSample_(sample.get(), received)) return received;
      return failed_("a picture cannot be converted", false);
    }
    return tryBus_(received) ? received : Received{};
  }

  std::string decoder() const override {
    const std::lock_guard<std::mutex> lock(mutex_);
    return decoder_;
  }
  long damaged() const override { return damaged_; }

 private:
  static Received failed_(const std::string& reason, bool refused) {
    Received received;
    received.event = Received::Event::Failed;
    received.reason = reason;
    received.refused = refused;
    return received;
  }

  void build_() {
    GError* raw = nullptr;
    pipeline_.reset(gst_parse_launch_full(descriptionOf(request_).c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &raw));
    const GstOwned<GError> error(raw);
    if (pipeline_ != nullptr) gst_object_ref_sink(pipeline_.get());
    if (error != nullptr || pipeline_ == nullptr || !GST_IS_BIN(pipeline_.get())) {
      fault_ = oneSentence(error != nullptr ? error->message : "this is not a pipeline");
      if (fault_.find("no element") != std::string::npos) fault_ += " (is its GStreamer plugin installed?)";
      return;
    }
    if (request_.address.kind == AddressKind::Pipeline) {
      useNamedSink_();
    } else {
      addSink_();
    }
    if (!fault_.empty()) return;
    g_object_set(sink_.get(), "drop", TRUE, "max-buffers", 1U, "sync", FALSE, "emit-signals", FALSE, nullptr);
    const GstOwned<GstCaps> caps(gst_caps_from_string(capsText().c_str()));
    gst_app_sink_set_caps(GST_APP_SINK(sink_.get()), caps.get());
    g_signal_connect(pipeline_.get(), "deep-element-added", G_CALLBACK(onElement_), this);
    bus_.reset(gst_element_get_bus(pipeline_.get()));
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
      Received received;
      const bool said = tryBus_(received) && !received.reason.empty();
      fault_ = said ? received.reason : "the pipeline does not start";
    }
  }

  void useNamedSink_() {
    sink_.reset(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "out"));
    if (sink_ == nullptr || !GST_IS_APP_SINK(sink_.get())) fault_ = "the pipeline does not end in 'appsink name=out'";
  }

  void addSink_() {
    GstElement* const sink = gst_element_factory_make("appsink", "out");
    if (sink == nullptr) {
      fault_ = "GStreamer has no appsink (package gstreamer1.0-plugins-base)";
      return;
    }
    gst_bin_add(GST_BIN(pipeline_.get()), sink);
    sink_.reset(GST_ELEMENT(gst_object_ref(sink)));
    const GstOwned<GstElement> decode(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "decode"));
    g_signal_connect(decode.get(), "pad-added", G_CALLBACK(onDecoded_), this);
    if (request_.address.kind != AddressKind::Rtsp) return;
    const GstOwned<GstElement> rtsp(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "rtsp"));
    g_signal_connect(rtsp.get(), "select-stream", G_CALLBACK(onSelect_), this);
    g_signal_connect(rtsp.get(), "pad-added", G_CALLBACK(onStream_), this);
  }

  /// Only video is asked for: sound would be received and decoded for nothing.
  static gboolean onSelect_(GstElement* /*rtsp*/, guint /*number*/, GstCaps* caps, gpointer /*self*/) {
    const char* const media = gst_structure_get_string(gst_caps_get_structure(caps, 0), "media");
    return media != nullptr && std::string(media) == "video" ? TRUE : FALSE;
  }

  static void onStream_(GstElement* /*rtsp*/, GstPad* pad, gpointer data) {
    auto* const self = static_cast<GstReceiver*>(data);
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onPacket_, self, nullptr);
    const GstOwned<GstElement> decode(gst_bin_get_by_name(GST_BIN(self->pipeline_.get()), "decode"));
    const GstOwned<GstPad> sink(gst_element_get_static_pad(decode.get(), "sink"));
    if (sink != nullptr && gst_pad_is_linked(sink.get()) == FALSE) gst_pad_link(pad, sink.get());
  }

  static void onDecoded_(GstElement* /*decode*/, GstPad* pad, gpointer data) {
    auto* const self = static_cast<GstReceiver*>(data);
    const GstOwned<GstCaps> caps(gst_pad_query_caps(pad, nullptr));
    const char* const name =
        gst_caps_is_empty(caps.get()) ? "" : gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
    if (std::string(name).rfind("video/", 0) != 0) return;
    const GstOwned<GstPad> sink(gst_element_get_static_pad(self->sink_.get(), "sink"));
    if (gst_pad_is_linked(sink.get()) == FALSE) gst_pad_link(pad, sink.get());
  }

  static void onElement_(GstBin* /*bin*/, GstBin* /*where*/, GstElement* element, gpointer data) {
    GstElementFactory* const factory = gst_element_get_factory(element);
    if (factory == nullptr ||
        gst_element_factory_list_is_type(
            factory, GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO) == FALSE) {
      return;
    }
    auto* const self = static_cast<GstReceiver*>(data);
    const std::lock_guard<std::mutex> lock(self->mutex_);
    const char* const name = gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(factory));
    if (std::string(name) != "decodebin") self->decoder_ = name;
  }

  /// Remembers the sender's clock of each packet by its time stamp: not every decoder hands it through.
  static GstPadProbeReturn onPacket_(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
    GstBuffer* const buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const GstReferenceTimestampMeta* const meta = gst_buffer_get_reference_timestamp_meta(buffer, nullptr);
    if (meta == nullptr || !GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
    const char* const kind = gst_structure_get_name(gst_caps_get_structure(meta->reference, 0));
    double unixS = static_cast<double>(meta->timestamp) * kNanosecond;
    if (std::string(kind) == "timestamp/x-ntp") unixS -= kNtpToUnixS;
    auto* const self = static_cast<GstReceiver*>(data);
    const std::lock_guard<std::mutex> lock(self->mutex_);
    if (!self->stamps_.empty() && self->stamps_.back().first == GST_BUFFER_PTS(buffer)) return GST_PAD_PROBE_OK;
    self->stamps_.emplace_back(GST_BUFFER_PTS(buffer), unixS);
    if (self->stamps_.size() > kStampsKept) self->stamps_.pop_front();
    return GST_PAD_PROBE_OK;
  }

  double sentUnixS_(GstClockTime pts) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found =
        std::find_if(stamps_.begin(), stamps_.end(), [pts](const auto& stamp) { return stamp.first == pts; });
    return found == stamps_.end() ? kUnknown : found->second;
  }

  /// For how long a picture of that time stamp has been in this machine; 0 where the source's stamps do not tell.
  double heldS_(GstClockTime pts) const {
    const AddressKind kind = request_.address.kind;
    if (kind != AddressKind::Rtsp && kind != AddressKind::Rtp && kind != AddressKind::Device) return 0.0;
    const GstOwned<GstClock> clock(gst_element_get_clock(pipeline_.get()));
    if (clock == nullptr) return 0.0;
    const auto now = static_cast<double>(gst_clock_get_time(clock.get()));
    const auto base = static_cast<double>(gst_element_get_base_time(pipeline_.get()));
    const double held = (now - base - static_cast<double>(pts)) * kNanosecond;
    return held > 0 && held < kOldestHeldS ? held : 0.0;
  }

  bool takeSample_(GstSample* sample, Received& received) {
    GstVideoInfo info;
    GstBuffer* const buffer = gst_sample_get_buffer(sample);
    GstCaps* const caps = gst_sample_get_caps(sample);
    if (buffer == nullptr || caps == nullptr || gst_video_info_from_caps(&info, caps) == FALSE) return false;
    if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_CORRUPTED)) ++damaged_;
    GstVideoFrame frame;
    if (gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ) == FALSE) return false;
    const std::uint8_t* planes[4] = {};
    int strides[4] = {};
    const bool swapped = GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_YV12;
    for (guint i = 0; i < std::min(GST_VIDEO_FRAME_N_PLANES(&frame), 4U); ++i) {
      const guint from = swapped && i > 0 ? 3 - i : i;
      planes[i] = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, from));
      strides[i] = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, from);
    }
    ReceivedPicture& picture = received.picture;
    picture.width = GST_VIDEO_FRAME_WIDTH(&frame);
    picture.height = GST_VIDEO_FRAME_HEIGHT(&frame);
    picture.bgr = converter_.toBgr(formatOf(info), picture.width, picture.height, planes, strides);
    picture.stride = converter_.stride();
    gst_video_frame_unmap(&frame);
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
      const GstClockTime pts = GST_BUFFER_PTS(buffer);
      picture.streamS = static_cast<double>(pts) * kNanosecond;
      picture.capturedUnixS = sentUnixS_(pts);
      picture.heldS = heldS_(pts);
    }
    received.event = Received::Event::Picture;
    return picture.bgr != nullptr;
  }

  /// What the pipeline says about itself; true when that ends the connection.
  bool tryBus_(Received& received) {
    if (bus_ == nullptr) return false;
    const auto kinds = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
    const GstOwned<GstMessage> message(gst_bus_pop_filtered(bus_.get(), kinds));
    if (message == nullptr) {
      const bool ended = sink_ != nullptr && gst_app_sink_is_eos(GST_APP_SINK(sink_.get())) != FALSE &&
                         GST_STATE(pipeline_.get()) == GST_STATE_PLAYING;
      if (ended) received.event = Received::Event::Ended;
      return ended;
    }
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) {
      received.event = Received::Event::Ended;
      return true;
    }
    GError* raw = nullptr;
    gst_message_parse_error(message.get(), &raw, nullptr);
    const GstOwned<GError> error(raw);
    received = failed_(wordsOf_(*error),
                       g_error_matches(error.get(), GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_AUTHORIZED) != FALSE);
    return true;
  }

  /// GStreamer's own words, but for what happens most: there they say little.
  std::string wordsOf_(const GError& error) const {
    const bool camera = request_.address.kind == AddressKind::Rtsp;
    const auto is = [&error](GQuark domain, int code) { return error.domain == domain && error.code == code; };
    if (is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_AUTHORIZED)) return "the camera refused the name or the password";
    if (camera && is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_READ_WRITE)) return "nothing answers there";
    if (camera && is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND)) return "it has no stream of that name";
    if (is(GST_STREAM_ERROR, GST_STREAM_ERROR_CODEC_NOT_FOUND) || is(GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN)) {
      return "there is no decoder for its video (package gstreamer1.0-libav has the usual ones)";
    }
    return oneSentence(error.message);
  }

  ReceiverRequest request_;
  std::string fault_;
  GstOwned<GstElement> pipeline_;
  GstOwned<GstElement> sink_;
  GstOwned<GstBus> bus_;
  PictureConverter converter_;
  long damaged_ = 0;
  mutable std::mutex mutex_;  // guards what the stream's own threads tell
  std::deque<std::pair<GstClockTime, double>> stamps_;
  std::string decoder_;
};

}  // namespace

std::unique_ptr<Receiver> openGstReceiver(const ReceiverRequest& request) {
  return std::make_unique<GstReceiver>(request);
}

std::vector<std::string> gstDecoders() {
  constexpr std::array<std::pair<const char*, const char*>, 3> kinds = {
      {{"H.264", "video/x-h264"}, {"H.265", "video/x-h265"}, {"JPEG", "image/jpeg"}}};
  std::vector<std::string> found;
  GList* all = gst_element_factory_list_get_elements(
      GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO | GST_ELEMENT_FACTORY_TYPE_MEDIA_IMAGE,
      GST_RANK_MARGINAL);
  all = g_list_sort(all, gst_plugin_feature_rank_compare_func);
  for (const auto& [title, type] : kinds) {
    const GstOwned<GstCaps> caps(gst_caps_new_empty_simple(type));
    GList* const able = gst_element_factory_list_filter(all, caps.get(), GST_PAD_SINK, FALSE);
    const char* const name = able == nullptr ? "none" : gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(able->data));
    found.push_back(std::string(title) + ": " + name);
    gst_plugin_feature_list_free(able);
  }
  gst_plugin_feature_list_free(all);
  return found;
}

}  // namespace live
