#include "tests/platform/avfoundation/WriterTesting.h"

#include <cstring>

namespace vidloom::testing {

NSDictionary videoSettings(double width, double height) {
  return {{AVVideoWidthKey, width}, {AVVideoHeightKey, height}, {AVVideoCodecKey, AVVideoCodecTypeH264}};
}

NSDictionary audioSettings() {
  return {{AVFormatIDKey, static_cast<int64_t>(kAudioFormatMPEG4AAC)},
          {AVEncoderBitRateKey, 128000},
          {AVNumberOfChannelsKey, 2},
          {AVSampleRateKey, 44100}};
}

std::shared_ptr<AVAssetWriterInput> videoInput() {
  return AVAssetWriterInput::initWithMediaType(AVMediaTypeVideo, videoSettings());
}

std::shared_ptr<AVAssetWriterInput> audioInput() {
  return AVAssetWriterInput::initWithMediaType(AVMediaTypeAudio, audioSettings());
}

std::shared_ptr<AVAssetWriter> writerOf(const std::filesystem::path& movie,
                                        const std::vector<std::shared_ptr<AVAssetWriterInput>>& inputs) {
  std::optional<NSError> error;
  auto writer = AVAssetWriter::initWithURL(movie, AVFileTypeMPEG4, &error);
  for (const auto& input : inputs) writer->addInput(input);
  VideoEncoderOptions options;
  options.threads = 1;
  writer->setVideoEncoderOptions(options);
  return writer;
}

std::shared_ptr<AVAssetWriter> startedWriter(const std::filesystem::path& movie,
                                             const std::vector<std::shared_ptr<AVAssetWriterInput>>& inputs, const CMTime& start) {
  auto writer = writerOf(movie, inputs);
  if (writer->startWriting()) writer->startSessionAtSourceTime(start);
  return writer;
}

CMSampleBufferRef bufferSample(const CVPixelBufferRef& buffer, const CMTime& time) {
  CMFormatDescriptionRef format;
  CMVideoFormatDescriptionCreateForImageBuffer(buffer, &format);
  CMSampleBufferRef sample;
  CMSampleBufferCreateForImageBuffer(buffer, true, format, {CMTimeMake(1, 30), time, kCMTimeInvalid}, &sample);
  return sample;
}

CMSampleBufferRef numberedSample(int index, const CMTime& time) {
  const auto picture = numberedPicture(index, writerWidth, writerHeight);
  return bufferSample(CVPixelBufferCreateWithPicture(picture, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange), time);
}

CMSampleBufferRef pcmSample(const AudioStreamBasicDescription& stream, std::vector<uint8_t> bytes, int64_t frameCount,
                            const CMTime& time) {
  CMFormatDescriptionRef format;
  CMAudioFormatDescriptionCreate(stream, &format);
  CMSampleBufferRef sample;
  CMAudioSampleBufferCreateReady(std::make_shared<CMBlockBuffer>(std::move(bytes)), format, frameCount, time, &sample);
  return sample;
}

CMSampleBufferRef soundSample(const SoundSamples& stereo, int64_t firstFrame, int64_t frameCount, int sampleRate) {
  AudioStreamBasicDescription stream{
      static_cast<double>(sampleRate), kAudioFormatLinearPCM, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 8, 1, 8, 2, 32};
  std::vector<uint8_t> bytes(static_cast<size_t>(frameCount) * 8);
  std::memcpy(bytes.data(), stereo.data() + firstFrame * 2, bytes.size());
  return pcmSample(stream, std::move(bytes), frameCount, CMTimeMake(firstFrame, sampleRate));
}

void finishAndWait(const std::shared_ptr<AVAssetWriter>& writer) {
  const auto finished = dispatch_semaphore_create(0);
  writer->finishWritingWithCompletionHandler([finished] { dispatch_semaphore_signal(finished); });
  dispatch_semaphore_wait(finished, DISPATCH_TIME_FOREVER);
}

}  // namespace vidloom::testing
