// The object behind a CVPixelBufferRef.
#pragma once

#include <map>
#include <optional>

#include "vidloom/platform/corevideo/CVPixelLayout.h"
#include "vidloom/platform/corevideo/CVPixelMemory.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// Pixels in memory, a picture that they are written out from when somebody asks for them, or both. Thread-safe but for the
/// pixels themselves.
class CVPixelBuffer {
 public:
  /// Cleared pixels; with `memory` (of the layout's size) the pixels that stand there.
  CVPixelBuffer(const CVPixelLayout& layout, NSDictionary attributes, CVPixelMemory::Block memory = nullptr);
  CVPixelBuffer(const CVPixelLayout& layout, PictureRef picture);

  const CVPixelLayout& layout() const { return layout_; }
  const NSDictionary& attributes() const { return attributes_; }

  CVReturn lock(bool readOnly);
  CVReturn unlock(bool readOnly);
  /// Null while the buffer is not locked.
  uint8_t* planeAddress(size_t planeIndex) const;

  void setAttachment(const std::string& key, const std::string& value);
  std::string attachment(const std::string& key) const;
  PictureRef copyPicture(CVPictureAlpha alpha);

 private:
  // All of these with the lock.
  bool materialise();
  void writePicture(const Picture& picture);
  void dropPictures();
  PictureRef convertPixels(CVPictureAlpha alpha) const;
  PictureColor color() const;
  std::string attachmentLocked(const std::string& key) const;
  bool isOpaque() const;

  const CVPixelLayout layout_;
  const NSDictionary attributes_;
  mutable std::mutex mutex_;
  CVPixelMemory::Block memory_;  ///< null: nobody has asked for the pixels yet
  PictureRef overBlack_;         ///< what the pixels show; null where unknown
  PictureRef withAlpha_;
  const std::optional<PictureColor> originalColor_;
  std::map<std::string, std::string> attachments_;
  int readLocks_ = 0;
  int writeLocks_ = 0;
};

}  // namespace vidloom
