// The libavformat module of csrt-track: what it exports.
#include "av_handles.h"
#include "av_receiver.h"
#include "av_stream_file.h"
#include "live/receiver.h"

namespace live {
namespace {

std::string versionText(unsigned version) {
  return std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xFF) + "." +
         std::to_string(version & 0xFF);
}

class AvModule : public Module {
 public:
  AvModule() : title_("libavformat " + versionText(avformat_version())) { avformat_network_init(); }
  const char* title() const override { return title_.c_str(); }
  bool receives(AddressKind kind) const override {
    return kind == AddressKind::Udp || kind == AddressKind::Http || kind == AddressKind::Sdp ||
           kind == AddressKind::Stdin || kind == AddressKind::Rtsp;
  }
  std::unique_ptr<Receiver> open(const ReceiverRequest& request) override { return openAvReceiver(request); }
  std::unique_ptr<Sender> openSender(const SenderRequest& /*request*/, std::string& fault) override {
    fault = "this module sends nothing";
    return nullptr;
  }
  std::unique_ptr<StreamFile> createFile(const SenderRequest& request, std::string& fault) override {
    return createAvStreamFile(request, fault);
  }
  std::vector<std::string> decoders() const override {
    std::vector<std::string> found;
    for (const AVCodecID id : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_MJPEG}) {
      const AVCodec* const codec = avcodec_find_decoder(id);
      found.push_back(std::string(avcodec_get_name(id)) + ": " + (codec == nullptr ? "none" : codec->name));
    }
    return found;
  }

 private:
  std::string title_;
};

}  // namespace
}  // namespace live

extern "C" __attribute__((visibility("default"))) live::Module* csrt_live_module(int version) {
  if (version != live::kModuleVersion) return nullptr;
  static live::AvModule module;
  return &module;
}
