// Samples for a writer's inputs.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/avfoundation/AVAssetWriter.h"
#include "vidloom/platform/avfoundation/AVAssetWriterInput.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom::testing {

inline constexpr int writerWidth = 160, writerHeight = 96;

NSDictionary videoSettings(double width = writerWidth, double height = writerHeight);
NSDictionary audioSettings();
std::shared_ptr<AVAssetWriterInput> videoInput();
std::shared_ptr<AVAssetWriterInput> audioInput();
/// A writer with those inputs, not started.
std::shared_ptr<AVAssetWriter> writerOf(const std::filesystem::path& movie,
                                        const std::vector<std::shared_ptr<AVAssetWriterInput>>& inputs);
/// The same, started, with a session at `start`.
std::shared_ptr<AVAssetWriter> startedWriter(const std::filesystem::path& movie,
                                             const std::vector<std::shared_ptr<AVAssetWriterInput>>& inputs,
                                             const CMTime& start = kCMTimeZero);

CMSampleBufferRef numberedSample(int index, const CMTime& time);
CMSampleBufferRef bufferSample(const CVPixelBufferRef& buffer, const CMTime& time);
/// Interleaved stereo float.
CMSampleBufferRef soundSample(const SoundSamples& stereo, int64_t firstFrame, int64_t frameCount, int sampleRate);
CMSampleBufferRef pcmSample(const AudioStreamBasicDescription& stream, std::vector<uint8_t> bytes, int64_t frameCount,
                            const CMTime& time);

/// Finishes and waits for the handler.
void finishAndWait(const std::shared_ptr<AVAssetWriter>& writer);

}  // namespace vidloom::testing
