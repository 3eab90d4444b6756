// How the codes of a stream's pictures are to be read.
#pragma once

#include "vidloom/platform/ffmpeg/StreamInspector.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

struct ColorReading {
  PictureColor color;             ///< of the pictures after decoding to 8-bit SDR
  bool isTagged = false;          ///< the matrix stands in the file
  bool highDynamicRange = false;  ///< PQ or HLG
  bool changesColors = false;     ///< the stored codes belong to another matrix or transfer and are converted to BT.709
};

ColorReading readColorTags(const StreamFacts& facts);
bool hasAlphaPlane(int pixelFormat);

}  // namespace vidloom
