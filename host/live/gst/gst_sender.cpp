#include "live/gst/gst_sender.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#ifdef CSRT_HAS_RTSP_SERVER
#include <gst/rtsp-server/rtsp-server.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>

#include "live/gst/gst_handles.h"

namespace live {
namespace {

constexpr const char* kEncode =
    " ! videoconvert ! video/x-raw,format=I420 ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max=12 "
    "bitrate=4000";

std::string sourceText(const SenderRequest& request) {
  // Two pictures wait at most: a slow receiver loses pictures, not time.
  return "appsrc name=src is-live=true do-timestamp=true format=time block=false max-buffers=2 leaky-type=downstream "
         "caps=video/x-raw,format=BGR,framerate=" +
         std::to_string(std::max(1L, std::lround(request.fps))) + "/1,width=" + std::to_string(request.width) +
         ",height=" + std::to_string(request.height);
}

/// Hands a picture to a source element, as a copy with rows as GStreamer expects them.
void push(GstElement* source, const std::uint8_t* bgr, int width, int height, std::size_t stride) {
  const std::size_t row = static_cast<std::size_t>(width) * 3;
  const std::size_t padded = (row + 3) / 4 * 4;
  GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, padded * static_cast<std::size_t>(height), nullptr);
  GstMapInfo map;
  if (buffer == nullptr || gst_buffer_map(buffer, &map, GST_MAP_WRITE) == FALSE) return;
  for (int y = 0; y < height; ++y) {
    std::memcpy(map.data + static_cast<std::size_t>(y) * padded, bgr + static_cast<std::size_t>(y) * stride, row);
  }
  gst_buffer_unmap(buffer, &map);
  gst_app_src_push_buffer(GST_APP_SRC(source), buffer);  // takes the buffer
}

class UdpSender : public Sender {
 public:
  ~UdpSender() override {
    if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }
  bool open(const SenderRequest& request, const Address& address, std::string& fault) {
    const std::string text =
        sourceText(request) + kEncode +
        " ! h264parse config-interval=-1 ! mpegtsmux alignment=7 ! udpsink sync=false host=" + address.host +
        " port=" + std::to_string(address.port);
    GError* raw = nullptr;
    pipeline_.reset(gst_parse_launch_full(text.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &raw));
    const GstOwned<GError> error(raw);
    if (pipeline_ != nullptr) gst_object_ref_sink(pipeline_.get());
    if (error != nullptr || pipeline_ == nullptr) {
      fault = error != nullptr ? error->message : "the pipeline cannot be made";
      return false;
    }
    source_.reset(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "src"));
    return gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  }
  bool send(const std::uint8_t* bgr, int width, int height, std::size_t stride, double /*timeS*/) override {
    push(source_.get(), bgr, width, height, stride);
    return true;
  }
  std::string fault() const override { return {}; }

 private:
  GstOwned<GstElement> pipeline_;
  GstOwned<GstElement> source_;
};

#ifdef CSRT_HAS_RTSP_SERVER
/// A server in a thread of its own; pictures go to whoever watches, or nowhere.
class RtspSender : public Sender {
 public:
  RtspSender() : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)) {}
  ~RtspSender() override {
    g_main_loop_quit(loop_);
    if (thread_.joinable()) thread_.join();
    if (server_ != nullptr) g_object_unref(server_);
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
    if (source_ != nullptr) gst_object_unref(source_);
  }
  RtspSender(const RtspSender&) = delete;
  RtspSender& operator=(const RtspSender&) = delete;

  bool open(const SenderRequest& request, const Address& address, std::string& fault) {
    server_ = gst_rtsp_server_new();
    gst_rtsp_server_set_address(server_, address.host.c_str());
    gst_rtsp_server_set_service(server_, std::to_string(address.port == 0 ? 8554 : address.port).c_str());
    GstRTSPMediaFactory* const factory = gst_rtsp_media_factory_new();
    const std::string text =
        "( " + sourceText(request) + kEncode + " ! rtph264pay name=pay0 pt=96 config-interval=-1 )";
    gst_rtsp_media_factory_set_launch(factory, text.c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    g_signal_connect(factory, "media-configure", G_CALLBACK(onMedia_), this);
    GstRTSPMountPoints* const mounts = gst_rtsp_server_get_mount_points(server_);
    const std::size_t slash = request.address.find('/', request.address.find("://") + 3);
    const std::string path = slash == std::string::npos ? "/track" : request.address.substr(slash);
    gst_rtsp_mount_points_add_factory(mounts, path.c_str(), factory);
    g_object_unref(mounts);
    if (gst_rtsp_server_attach(server_, context_) == 0) {
      fault = "nothing can be served there; is the port in use?";
      return false;
    }
    thread_ = std::thread([this] { g_main_loop_run(loop_); });
    return true;
  }

  bool send(const std::uint8_t* bgr, int width, int height, std::size_t stride, double /*timeS*/) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (source_ != nullptr) push(source_, bgr, width, height, stride);
    return true;
  }
  std::string fault() const override { return {}; }

 private:
  static void onMedia_(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, gpointer data) {
    auto* const self = static_cast<RtspSender*>(data);
    GstElement* const bin = gst_rtsp_media_get_element(media);
    GstElement* const source = gst_bin_get_by_name_recurse_up(GST_BIN(bin), "src");
    const std::lock_guard<std::mutex> lock(self->mutex_);
    if (self->source_ != nullptr) gst_object_unref(self->source_);
    self->source_ = source;
    gst_object_unref(bin);
  }

  GMainContext* context_;
  GMainLoop* loop_;
  GstRTSPServer* server_ = nullptr;
  std::thread thread_;
  std::mutex mutex_;  // guards source_: the server's thread sets it
  GstElement* source_ = nullptr;
};
#endif

}  // namespace

std::unique_ptr<Sender> openGstSender(const SenderRequest& request, std::string& fault) {
  std::string wrong;
  const Address address = parseAddress(request.address, wrong);
  if (!wrong.empty()) {
    fault = wrong;
    return nullptr;
  }
  if (address.kind == AddressKind::Udp && !address.host.empty()) {
    auto sender = std::make_unique<UdpSender>();
    return sender->open(request, address, fault) ? std::move(sender) : nullptr;
  }
#ifdef CSRT_HAS_RTSP_SERVER
  if (address.kind == AddressKind::Rtsp) {
    auto sender = std::make_unique<RtspSender>();
    return sender->open(request, address, fault) ? std::move(sender) : nullptr;
  }
#endif
  fault = "streams go to udp://HOST:PORT or rtsp://ADDRESS:PORT/NAME";
  return nullptr;
}

}  // namespace live
