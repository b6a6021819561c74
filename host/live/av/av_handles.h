// Owners for libavformat's and libavcodec's objects, and their error numbers as words.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

namespace live {

/// Frees what libavformat and libavcodec hand out.
struct AvFree {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

template <typename T>
using AvOwned = std::unique_ptr<T, AvFree>;

/// The library's words for an error. @param error  a negative AVERROR
inline std::string avWords(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

}  // namespace live
