// Owners for GStreamer's counted objects.
#pragma once

#include <gst/gst.h>

#include <memory>

namespace live {

/// Gives GStreamer's objects back.
struct GstUnref {
  void operator()(void* object) const { gst_object_unref(object); }
  void operator()(GstSample* sample) const { gst_sample_unref(sample); }
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
  void operator()(GstMessage* message) const { gst_message_unref(message); }
  void operator()(GError* error) const { g_error_free(error); }
};

template <typename T>
using GstOwned = std::unique_ptr<T, GstUnref>;

}  // namespace live
