// The GStreamer module of csrt-track: what it exports.
#include <gst/gst.h>

#include "gst_receiver.h"
#include "live/receiver.h"

namespace live {
namespace {

class GstModule : public Module {
 public:
  GstModule() {
    gst_init(nullptr, nullptr);
    guint major = 0;
    guint minor = 0;
    guint micro = 0;
    guint nano = 0;
    gst_version(&major, &minor, &micro, &nano);
    title_ = "GStreamer " + std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(micro);
  }
  const char* title() const override { return title_.c_str(); }
  bool receives(AddressKind kind) const override { return kind != AddressKind::None; }
  std::unique_ptr<Receiver> open(const ReceiverRequest& request) override { return openGstReceiver(request); }
  std::unique_ptr<Sender> openSender(const SenderRequest& /*request*/, std::string& fault) override {
    fault = "this module sends nothing";
    return nullptr;
  }
  std::unique_ptr<StreamFile> createFile(const SenderRequest& /*request*/, std::string& fault) override {
    fault = "this module writes no files";
    return nullptr;
  }
  std::vector<std::string> decoders() const override { return gstDecoders(); }

 private:
  std::string title_;
};

}  // namespace
}  // namespace live

extern "C" __attribute__((visibility("default"))) live::Module* csrt_live_module(int version) {
  if (version != live::kModuleVersion) return nullptr;
  static live::GstModule module;
  return &module;
}
