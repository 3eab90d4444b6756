#include "vidloom/platform/corevideo/CVPixelBuffer.h"

#include <gmock/gmock.h>

#include <cstring>
#include <set>
#include <thread>

#include "vidloom/platform/corevideo/CVPixelBufferPool.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {
namespace {

constexpr OSType kFull = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
constexpr OSType kVideo = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
constexpr OSType kBGRA = kCVPixelFormatType_32BGRA;

CVPixelBufferRef makeBuffer(size_t width, size_t height, OSType format) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(width, height, format, {}, &buffer), kCVReturnSuccess);
  return buffer;
}

/// Holds the buffer locked while it lives.
class Locked {
 public:
  Locked(CVPixelBufferRef buffer, CVOptionFlags flags) : buffer_(std::move(buffer)), flags_(flags) {
    EXPECT_EQ(CVPixelBufferLockBaseAddress(buffer_, flags_), kCVReturnSuccess);
  }
  ~Locked() { EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer_, flags_), kCVReturnSuccess); }
  uint8_t* row(size_t plane, size_t y) const {
    if (!CVPixelBufferIsPlanar(buffer_)) {
      return static_cast<uint8_t*>(CVPixelBufferGetBaseAddress(buffer_)) + y * CVPixelBufferGetBytesPerRow(buffer_);
    }
    return static_cast<uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer_, plane)) +
           y * CVPixelBufferGetBytesPerRowOfPlane(buffer_, plane);
  }

 private:
  CVPixelBufferRef buffer_;
  CVOptionFlags flags_;
};

void fillPlane(uint8_t* data, ptrdiff_t stride, int width, int height, const std::function<uint8_t(int, int)>& code) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) data[y * stride + x] = code(x, y);
  }
}

/// A limited-range picture that holds every legal code.
PictureRef makePicture(int width, int height, bool alpha = false) {
  auto picture = PicturePool::shared().make(width, height, {}, alpha);
  const int chromaWidth = picture->chromaWidth(), chromaHeight = picture->chromaHeight();
  fillPlane(picture->mutableY(), picture->y.stride, width, height,
            [](int x, int y) { return static_cast<uint8_t>(16 + (x + 7 * y) % 220); });
  fillPlane(picture->mutableCb(), picture->cb.stride, chromaWidth, chromaHeight,
            [](int x, int y) { return static_cast<uint8_t>(16 + (x + 3 * y) % 225); });
  fillPlane(picture->mutableCr(), picture->cr.stride, chromaWidth, chromaHeight,
            [](int x, int y) { return static_cast<uint8_t>(240 - (x + 5 * y) % 225); });
  if (alpha) fillPlane(picture->mutableAlpha(), picture->alpha.stride, width, height, [](int x, int) { return x % 2 ? 255 : 0; });
  return picture;
}

void expectSamePlane(const PicturePlane& a, const PicturePlane& b, int width, int height, const char* name) {
  for (int y = 0; y < height; ++y) {
    ASSERT_EQ(std::memcmp(a.data + y * a.stride, b.data + y * b.stride, static_cast<size_t>(width)), 0) << name << " row " << y;
  }
}

void expectSamePicture(const Picture& a, const Picture& b) {
  ASSERT_EQ(a.width, b.width);
  ASSERT_EQ(a.height, b.height);
  EXPECT_EQ(a.color, b.color);
  expectSamePlane(a.y, b.y, a.width, a.height, "luma");
  expectSamePlane(a.cb, b.cb, a.chromaWidth(), a.chromaHeight(), "Cb");
  expectSamePlane(a.cr, b.cr, a.chromaWidth(), a.chromaHeight(), "Cr");
}

TEST(CVPixelBuffer, HasTheLayoutOfItsFormat) {
  struct Row {
    OSType format;
    size_t width, height, planes, chromaWidth, chromaHeight, leastBytesPerRow;
  };
  for (const Row& row : {Row{kFull, 853, 481, 2, 427, 241, 853}, Row{kVideo, 2, 1, 2, 1, 1, 2}, Row{kBGRA, 5, 3, 0, 0, 0, 20}}) {
    const auto buffer = makeBuffer(row.width, row.height, row.format);
    EXPECT_EQ(CVPixelBufferGetWidth(buffer), row.width);
    EXPECT_EQ(CVPixelBufferGetHeight(buffer), row.height);
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer), row.format);
    EXPECT_EQ(CVPixelBufferGetPlaneCount(buffer), row.planes);
    EXPECT_EQ(CVPixelBufferIsPlanar(buffer), row.planes > 0);
    EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer, 1), row.chromaWidth);
    EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer, 1), row.chromaHeight);
    EXPECT_GE(CVPixelBufferGetBytesPerRow(buffer), row.leastBytesPerRow);
    EXPECT_GE(CVPixelBufferGetBytesPerRowOfPlane(buffer, 1), 2 * row.chromaWidth);
    EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(buffer, 2), 0u);
    const Locked locked(buffer, kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer, row.planes), nullptr);
    for (size_t y = 0; y < row.height; ++y) {
      for (size_t x = 0; x < row.leastBytesPerRow; ++x) ASSERT_EQ(locked.row(0, y)[x], 0);
    }
  }
}

TEST(CVPixelBuffer, RefusesWhatItCannotHold) {
  struct Row {
    size_t width, height;
    OSType format;
    CVReturn status;
  };
  for (const Row& row : {Row{0, 2, kFull, kCVReturnInvalidArgument}, Row{2, 0, kBGRA, kCVReturnInvalidArgument},
                         Row{2, 2, 0x79343230, kCVReturnInvalidPixelFormat}, Row{40000, 1, kFull, kCVReturnInvalidSize},
                         Row{~size_t{0}, 2, kBGRA, kCVReturnInvalidSize}}) {
    auto buffer = makeBuffer(2, 2, kFull);
    EXPECT_EQ(CVPixelBufferCreate(row.width, row.height, row.format, {}, &buffer), row.status);
    EXPECT_EQ(buffer, nullptr);
  }
  EXPECT_EQ(CVPixelBufferLockBaseAddress(nullptr, 0), kCVReturnInvalidArgument);
  EXPECT_EQ(CVPixelBufferGetWidth(nullptr), 0u);
  EXPECT_EQ(CVPixelBufferCopyPicture(nullptr), nullptr);
  EXPECT_EQ(CVPixelBufferCreateWithPicture(makePicture(2, 2), 0x79343230), nullptr);
}

TEST(CVPixelBuffer, GivesItsAddressOnlyWhileLockedAndLocksNest) {
  const auto buffer = makeBuffer(4, 4, kBGRA);
  EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer), nullptr);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer, 0), kCVReturnInvalidArgument);
  {
    const Locked outer(buffer, 0);
    { const Locked inner(buffer, kCVPixelBufferLock_ReadOnly); }
    EXPECT_NE(CVPixelBufferGetBaseAddress(buffer), nullptr);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly), kCVReturnInvalidArgument);
  }
  EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer), nullptr);
}

TEST(CVPixelBuffer, KeepsAttributesAndAttachments) {
  CVPixelBufferRef buffer;
  CVPixelBufferCreate(2, 2, kFull, {{kCVPixelBufferMetalCompatibilityKey, true}}, &buffer);
  EXPECT_EQ(std::any_cast<bool>(CVPixelBufferGetAttributes(buffer).at(kCVPixelBufferMetalCompatibilityKey)), true);
  EXPECT_EQ(CVBufferGetAttachment(buffer, "key"), "");
  CVBufferSetAttachment(buffer, "key", "value");
  EXPECT_EQ(CVBufferGetAttachment(buffer, "key"), "value");
}

TEST(PictureBuffer, IsThatVeryPictureUntilSomebodyMayHaveWritten) {
  const PictureRef picture = makePicture(64, 32);
  for (const OSType format : {kFull, kVideo, kBGRA}) {
    const auto buffer = CVPixelBufferCreateWithPicture(picture, format);
    EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
    { const Locked reading(buffer, kCVPixelBufferLock_ReadOnly); }
    EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
    CVBufferSetAttachment(buffer, "note", "no colour");
    CVBufferSetAttachment(buffer, kCVImageBufferYCbCrMatrixKey, "ITU_R_709_2");
    EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
    { const Locked writing(buffer, 0); }
    EXPECT_NE(CVPixelBufferCopyPicture(buffer), picture);
  }
}

TEST(PictureBuffer, LosesNoLegalCodeOnTheWayThroughBiplanarPixels) {
  for (const auto& [width, height] : {std::pair{256, 64}, std::pair{853, 481}, std::pair{1, 1}}) {
    const PictureRef picture = makePicture(width, height);
    for (const OSType format : {kFull, kVideo}) {
      const auto buffer = CVPixelBufferCreateWithPicture(picture, format);
      { const Locked writing(buffer, 0); }
      const PictureRef back = CVPixelBufferCopyPicture(buffer);
      expectSamePicture(*back, *picture);
    }
  }
}

TEST(PictureBuffer, WritesFullRangeCodes) {
  auto picture = PicturePool::shared().make(2, 2, {}, false);
  fillPlane(picture->mutableY(), picture->y.stride, 2, 2, [](int x, int) { return x ? 235 : 16; });
  *picture->mutableCb() = 128;
  *picture->mutableCr() = 240;
  const Locked reading(CVPixelBufferCreateWithPicture(picture, kFull), kCVPixelBufferLock_ReadOnly);
  EXPECT_EQ(reading.row(0, 0)[0], 0);
  EXPECT_EQ(reading.row(0, 1)[1], 255);
  EXPECT_EQ(reading.row(1, 0)[0], 128);
  EXPECT_EQ(reading.row(1, 0)[1], 255);
}

TEST(PictureBuffer, ShowsWhatWasWrittenEvenDuringALaterLock) {
  const auto buffer = CVPixelBufferCreateWithPicture(makePicture(16, 16), kVideo);
  const Locked writing(buffer, 0);
  writing.row(0, 3)[5] = 99;
  EXPECT_EQ(CVPixelBufferCopyPicture(buffer)->y.data[3 * CVPixelBufferCopyPicture(buffer)->y.stride + 5], 99);
  writing.row(0, 3)[5] = 101;
  const PictureRef second = CVPixelBufferCopyPicture(buffer);
  EXPECT_EQ(second->y.data[3 * second->y.stride + 5], 101);
}

TEST(HostBuffer, IsConvertedOnceWhileNobodyWrites) {
  const auto buffer = makeBuffer(16, 16, kFull);
  const PictureRef picture = CVPixelBufferCopyPicture(buffer);
  EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
  { const Locked reading(buffer, kCVPixelBufferLock_ReadOnly); }
  EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
}

TEST(HostBuffer, IsTakenForTheMatrixOfItsAttachmentsElseOfItsSize) {
  struct Row {
    size_t width, height;
    std::string matrix;
    ColorMatrix expected;
    std::string name;
  };
  for (const Row& row :
       {Row{720, 576, "", ColorMatrix::bt601, "smpte170m"}, Row{721, 576, "", ColorMatrix::bt709, "bt709"},
        Row{720, 577, "", ColorMatrix::bt709, "bt709"}, Row{1920, 1080, "ITU_R_601_4", ColorMatrix::bt601, "smpte170m"},
        Row{320, 240, "ITU_R_709_2", ColorMatrix::bt709, "bt709"}}) {
    const auto buffer = makeBuffer(row.width, row.height, kBGRA);
    CVPixelBufferCopyPicture(buffer);
    if (!row.matrix.empty()) CVBufferSetAttachment(buffer, kCVImageBufferYCbCrMatrixKey, row.matrix);
    const PictureRef picture = CVPixelBufferCopyPicture(buffer);
    EXPECT_EQ(picture->color.matrix, row.expected);
    EXPECT_EQ(picture->color.matrixName, row.name);
    EXPECT_FALSE(picture->color.fullRange);
  }
}

TEST(PictureBuffer, TellsItsColourInAttachmentsAndKeepsItWhenWrittenTo) {
  auto picture = PicturePool::shared().make(1920, 1080, {ColorMatrix::bt601, false, "bt470bg", "smpte170m", "bt470bg"}, false);
  const auto buffer = CVPixelBufferCreateWithPicture(picture, kBGRA);
  EXPECT_EQ(CVBufferGetAttachment(buffer, kCVImageBufferYCbCrMatrixKey), "ITU_R_601_4");
  EXPECT_EQ(CVBufferGetAttachment(buffer, kCVImageBufferColorPrimariesKey), "EBU_3213");
  EXPECT_EQ(CVBufferGetAttachment(buffer, kCVImageBufferTransferFunctionKey), "ITU_R_709_2");
  { const Locked writing(buffer, 0); }
  EXPECT_EQ(CVPixelBufferCopyPicture(buffer)->color, picture->color);
  CVBufferSetAttachment(buffer, kCVImageBufferColorPrimariesKey, "ITU_R_709_2");
  EXPECT_EQ(CVPixelBufferCopyPicture(buffer)->color.primaries, "bt709");
}

TEST(HostBuffer, IsOpaqueOverBlackUnlessItsAlphaIsAskedFor) {
  const auto buffer = makeBuffer(4, 4, kBGRA);
  const auto fill = [&](uint8_t grey, uint8_t alpha) {
    const Locked writing(buffer, 0);
    for (size_t y = 0; y < 4; ++y) {
      for (size_t x = 0; x < 4; ++x) {
        const uint8_t pixel[4] = {grey, grey, grey, alpha};
        std::memcpy(writing.row(0, y) + 4 * x, pixel, 4);
      }
    }
  };
  fill(64, 128);  // a grey of 128 at half opacity, premultiplied
  EXPECT_FALSE(CVPixelBufferCopyPicture(buffer)->hasAlpha());
  EXPECT_NEAR(*CVPixelBufferCopyPicture(buffer)->y.data, 16 + 64 * 219 / 255.0, 1);
  const PictureRef blended = CVPixelBufferCopyPicture(buffer, CVPictureAlpha::keep);
  ASSERT_TRUE(blended->hasAlpha());
  EXPECT_EQ(*blended->alpha.data, 128);
  EXPECT_NEAR(*blended->y.data, 16 + 128 * 219 / 255.0, 1.5);
  fill(64, 255);
  EXPECT_FALSE(CVPixelBufferCopyPicture(buffer, CVPictureAlpha::keep)->hasAlpha());
}

TEST(PictureBuffer, PremultipliesAlphaInBGRA) {
  const Locked reading(CVPixelBufferCreateWithPicture(makePicture(4, 2, true), kBGRA), kCVPixelBufferLock_ReadOnly);
  const uint8_t clear[4] = {0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(reading.row(0, 0), clear, 4), 0);
  EXPECT_EQ(reading.row(0, 0)[7], 255);
}

TEST(PictureBuffer, CanBeReadFromManyThreadsAtATime) {
  const PictureRef picture = makePicture(128, 64);
  const auto buffer = CVPixelBufferCreateWithPicture(picture, kFull);
  std::vector<std::thread> readers;
  std::vector<int> sums(4);
  for (size_t i = 0; i < sums.size(); ++i) {
    readers.emplace_back([&, i] {
      const Locked reading(buffer, kCVPixelBufferLock_ReadOnly);
      for (size_t x = 0; x < 128; ++x) sums[i] += reading.row(0, 5)[x];
      EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
    });
  }
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(std::set<int>(sums.begin(), sums.end()).size(), 1u);
  EXPECT_GT(sums[0], 0);
}

CVPixelBufferPoolRef makePool(const NSDictionary& attributes) {
  CVPixelBufferPoolRef pool;
  EXPECT_EQ(CVPixelBufferPoolCreate({}, attributes, &pool), kCVReturnSuccess);
  return pool;
}

const void* addressOf(const CVPixelBufferRef& buffer) {
  const Locked reading(buffer, kCVPixelBufferLock_ReadOnly);
  return CVPixelBufferGetBaseAddress(buffer);
}

const NSDictionary kPoolAttributes = {{kCVPixelBufferPixelFormatTypeKey, kFull},
                                      {kCVPixelBufferWidthKey, 320.0},
                                      {kCVPixelBufferHeightKey, int64_t{180}},
                                      {kCVPixelBufferMetalCompatibilityKey, true}};

TEST(CVPixelBufferPool, UsesTheMemoryOfReleasedBuffersAgainButNeverSharesIt) {
  auto pool = makePool(kPoolAttributes);
  CVPixelBufferRef first, second;
  ASSERT_EQ(CVPixelBufferPoolCreatePixelBuffer(pool, &first), kCVReturnSuccess);
  ASSERT_EQ(CVPixelBufferPoolCreatePixelBuffer(pool, &second), kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferGetWidth(first), 320u);
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(first), kFull);
  EXPECT_EQ(CVPixelBufferGetAttributes(first).count(kCVPixelBufferMetalCompatibilityKey), 1u);
  const void* address = addressOf(first);
  EXPECT_NE(address, addressOf(second));
  first.reset();
  ASSERT_EQ(CVPixelBufferPoolCreatePixelBuffer(pool, &first), kCVReturnSuccess);
  EXPECT_EQ(addressOf(first), address);
  pool.reset();
  EXPECT_NE(addressOf(second), nullptr);
}

TEST(CVPixelBufferPool, NeedsFormatAndSize) {
  CVPixelBufferPoolRef pool;
  for (const auto& key : {kCVPixelBufferPixelFormatTypeKey, kCVPixelBufferWidthKey, kCVPixelBufferHeightKey}) {
    NSDictionary attributes = kPoolAttributes;
    attributes.erase(key);
    EXPECT_EQ(CVPixelBufferPoolCreate({}, attributes, &pool), kCVReturnInvalidPixelBufferAttributes) << key;
  }
  NSDictionary attributes = kPoolAttributes;
  attributes[kCVPixelBufferWidthKey] = -3.0;
  EXPECT_EQ(CVPixelBufferPoolCreate({}, attributes, &pool), kCVReturnInvalidArgument);
  attributes[kCVPixelBufferPixelFormatTypeKey] = 7;
  EXPECT_EQ(CVPixelBufferPoolCreate({}, attributes, &pool), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(pool, nullptr);
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferPoolCreatePixelBuffer(nullptr, &buffer), kCVReturnInvalidArgument);
}

}  // namespace
}  // namespace vidloom
