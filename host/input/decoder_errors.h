// What the video decoder complains of: it conceals damage and delivers a picture all the same.
#pragma once

namespace host {

/// From now on decoderErrors() counts. Call it after a video was opened: opening one puts OpenCV's own listener in
/// place. Does nothing where OpenCV has no FFmpeg.
void watchDecoder();

/// How many errors FFmpeg has reported since watchDecoder(). Any thread. A decoder with several threads reports an
/// error up to a few frames before it delivers the picture.
long decoderErrors();

}  // namespace host
