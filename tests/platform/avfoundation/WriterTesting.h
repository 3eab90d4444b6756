// Samples for a writer's inputs.
#pragma once

#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "tests/support/Fixtures.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/avfoundation/AVAssetWriter.h"
#include "vidloom/platform/avfoundation/AVAssetWriterInput.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom::testing {

inline constexpr int writerWidth = 160, writerHeight = 96;

inline NSDictionary videoSettings(double width = writerWidth, double height = writerHeight) {
  return {{AVVideoWidthKey, width}, {AVVideoHeightKey, height}, {AVVideoCodecKey, AVVideoCodecTypeH264}};
}

inline NSDictionary audioSettings(double sampleRate = 44100, int64_t channels = 2, double bitRate = 128'000) {
  return {{AVFormatIDKey, static_cast<int64_t>(kAudioFormatMPEG4AAC)},
          {AVEncoderBitRateKey, bitRate},
          {AVNumberOfChannelsKey, channels},
          {AVSampleRateKey, sampleRate}};
}

inline std::shared_ptr<AVAssetWriterInput> videoInput() {
  return AVAssetWriterInput::initWithMediaType(AVMediaTypeVideo, videoSettings());
}

inline std::shared_ptr<AVAssetWriterInput> audioInput() {
  return AVAssetWriterInput::initWithMediaType(AVMediaTypeAudio, audioSettings());
}

using Inputs = std::vector<std::shared_ptr<AVAssetWriterInput>>;

/// A writer with those inputs, not started.
inline std::shared_ptr<AVAssetWriter> writerOf(const std::filesystem::path& movie, const Inputs& inputs) {
  auto writer = AVAssetWriter::initWithURL(movie, AVFileTypeMPEG4, nullptr);
  for (const auto& input : inputs) writer->addInput(input);
  VideoEncoderOptions options;
  options.threads = 1;
  writer->setVideoEncoderOptions(options);
  return writer;
}

/// The same, started, with a session at `start`.
inline std::shared_ptr<AVAssetWriter> startedWriter(const std::filesystem::path& movie, const Inputs& inputs,
                                                    const CMTime& start = kCMTimeZero) {
  auto writer = writerOf(movie, inputs);
  if (writer->startWriting()) writer->startSessionAtSourceTime(start);
  return writer;
}

inline CMSampleBufferRef numberedSample(int index, const CMTime& time) {
  const auto buffer = CVPixelBufferCreateWithPicture(numberedPicture(index, writerWidth, writerHeight),
                                                     kCVPixelFormatType_420YpCbCr8BiPlanarFullRange);
  CMFormatDescriptionRef format;
  CMVideoFormatDescriptionCreateForImageBuffer(buffer, &format);
  CMSampleBufferRef sample;
  CMSampleBufferCreateForImageBuffer(buffer, true, format, {CMTimeMake(1, 30), time, kCMTimeInvalid}, &sample);
  return sample;
}

inline CMSampleBufferRef pcmSample(const AudioStreamBasicDescription& stream, std::vector<uint8_t> bytes, int64_t frameCount,
                                   const CMTime& time) {
  CMFormatDescriptionRef format;
  CMAudioFormatDescriptionCreate(stream, &format);
  CMSampleBufferRef sample;
  CMAudioSampleBufferCreateReady(std::make_shared<CMBlockBuffer>(std::move(bytes)), format, frameCount, time, &sample);
  return sample;
}

/// A part of interleaved stereo float at 44.1 kHz, at its own time.
inline CMSampleBufferRef soundSample(const SoundSamples& stereo, int64_t firstFrame, int64_t frameCount) {
  std::vector<uint8_t> bytes(static_cast<size_t>(frameCount) * 8);
  std::memcpy(bytes.data(), stereo.data() + firstFrame * 2, bytes.size());
  return pcmSample({44100, kAudioFormatLinearPCM, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 8, 1, 8, 2, 32},
                   std::move(bytes), frameCount, CMTimeMake(firstFrame, 44100));
}

/// Finishes and waits for the handler.
inline void finishAndWait(const std::shared_ptr<AVAssetWriter>& writer) {
  const auto finished = dispatch_semaphore_create(0);
  writer->finishWritingWithCompletionHandler([finished] { dispatch_semaphore_signal(finished); });
  dispatch_semaphore_wait(finished, DISPATCH_TIME_FOREVER);
}

}  // namespace vidloom::testing
