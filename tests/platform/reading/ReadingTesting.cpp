#include "tests/platform/reading/ReadingTesting.h"

namespace vidloom::testing {

ServedFrames serveAll(SampleSource& source) {
  ServedFrames served;
  while (const CMSampleBufferRef sample = source.next(&served.error)) {
    served.numbers.push_back(frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample))));
    served.times.push_back(CMSampleBufferGetPresentationTimeStamp(sample));
  }
  return served;
}

}  // namespace vidloom::testing
