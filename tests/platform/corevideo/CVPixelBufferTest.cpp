#include "vidloom/platform/corevideo/CVPixelBuffer.h"

#include <gmock/gmock.h>

#include <numeric>
#include <thread>

#include "tests/platform/pixels/TestPictures.h"
#include "vidloom/platform/corevideo/CVPixelBufferPool.h"

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

/// A limited-range picture that holds every legal code.
PictureRef makePicture(int width, int height, bool alpha = false) {
  return test::makePicture(width, height, {}, alpha, [](int plane, int x, int y) {
    if (plane == 3) return x % 2 ? 255 : 0;
    return plane == 0 ? 16 + (x + 7 * y) % 220 : plane == 1 ? 16 + (x + 3 * y) % 225 : 240 - (x + 5 * y) % 225;
  });
}

TEST(CVPixelBuffer, HasTheLayoutOfItsFormat) {
  using Row = std::tuple<OSType, size_t, size_t, size_t, size_t, size_t, size_t>;
  for (const auto& [format, width, height, planes, chromaWidth, chromaHeight, leastBytesPerRow] :
       {Row{kFull, 853, 481, 2, 427, 241, 853}, Row{kVideo, 2, 1, 2, 1, 1, 2}, Row{kBGRA, 5, 3, 0, 0, 0, 20}}) {
    const auto buffer = makeBuffer(width, height, format);
    EXPECT_EQ(CVPixelBufferGetPlaneCount(buffer), planes);
    EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer, 1), chromaWidth);
    EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer, 1), chromaHeight);
    EXPECT_GE(CVPixelBufferGetBytesPerRow(buffer), leastBytesPerRow);
    EXPECT_GE(CVPixelBufferGetBytesPerRowOfPlane(buffer, 1), 2 * chromaWidth);
    EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(buffer, 2), 0u);
    const Locked locked(buffer, kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer, planes), nullptr);
    for (size_t y = 0; y < height; ++y) {
      for (size_t x = 0; x < leastBytesPerRow; ++x) ASSERT_EQ(locked.row(0, y)[x], 0);
    }
  }
}

TEST(CVPixelBuffer, RefusesWhatItCannotHold) {
  using Row = std::tuple<size_t, size_t, OSType, CVReturn>;
  for (const auto& [width, height, format, status] :
       {Row{0, 2, kFull, kCVReturnInvalidArgument}, Row{2, 0, kBGRA, kCVReturnInvalidArgument},
        Row{2, 2, 0x79343230, kCVReturnInvalidPixelFormat}, Row{40000, 1, kFull, kCVReturnInvalidSize},
        Row{~size_t{0}, 2, kBGRA, kCVReturnInvalidSize}}) {
    auto buffer = makeBuffer(2, 2, kFull);
    EXPECT_EQ(CVPixelBufferCreate(width, height, format, {}, &buffer), status);
    EXPECT_EQ(buffer, nullptr);
  }
  EXPECT_EQ(CVPixelBufferCreateWithPicture(makePicture(2, 2), 0x79343230), nullptr);
}

TEST(CVPixelBuffer, GivesItsAddressOnlyWhileLockedAndLocksNest) {
  const auto buffer = makeBuffer(4, 4, kBGRA);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer, 0), kCVReturnInvalidArgument);
  {
    const Locked outer(buffer, 0);
    { const Locked inner(buffer, kCVPixelBufferLock_ReadOnly); }
    EXPECT_NE(CVPixelBufferGetBaseAddress(buffer), nullptr);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly), kCVReturnInvalidArgument);
  }
  EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer), nullptr);
}

TEST(PictureBuffer, IsThatVeryPictureUntilSomebodyMayHaveWritten) {
  const PictureRef picture = makePicture(64, 32);
  for (const OSType format : {kFull, kVideo, kBGRA}) {
    const auto buffer = CVPixelBufferCreateWithPicture(picture, format);
    { const Locked reading(buffer, kCVPixelBufferLock_ReadOnly); }
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
      EXPECT_EQ(back->color, picture->color);
      EXPECT_EQ(test::largestDifference(*back, *picture), 0) << width << "x" << height;
    }
  }
}

TEST(PictureBuffer, WritesFullRangeCodes) {
  const auto picture = test::makePicture(2, 2, {}, false, [](int plane, int x, int) {
    return plane == 0 ? 16 + 219 * x : plane == 1 ? 128 : 240;
  });
  const Locked reading(CVPixelBufferCreateWithPicture(picture, kFull), kCVPixelBufferLock_ReadOnly);
  EXPECT_EQ(std::vector<uint8_t>(reading.row(0, 0), reading.row(0, 0) + 2), (std::vector<uint8_t>{0, 255}));
  EXPECT_EQ(std::vector<uint8_t>(reading.row(1, 0), reading.row(1, 0) + 2), (std::vector<uint8_t>{128, 255}));
}

TEST(PictureBuffer, ShowsWhatWasWrittenEvenDuringALaterLock) {
  const auto buffer = CVPixelBufferCreateWithPicture(makePicture(16, 16), kVideo);
  const Locked writing(buffer, 0);
  for (const uint8_t code : {uint8_t{99}, uint8_t{101}}) {
    writing.row(0, 3)[5] = code;
    EXPECT_EQ(test::sampleOf(*CVPixelBufferCopyPicture(buffer), 0, 5, 3), code);
  }
}

TEST(HostBuffer, IsTakenForTheMatrixOfItsAttachmentsElseOfItsSize) {
  using Row = std::tuple<size_t, size_t, std::string, std::string>;
  for (const auto& [width, height, attached, matrix] :
       {Row{720, 576, "", "smpte170m"}, Row{721, 576, "", "bt709"}, Row{720, 577, "", "bt709"},
        Row{1920, 1080, "ITU_R_601_4", "smpte170m"}, Row{320, 240, "ITU_R_709_2", "bt709"}}) {
    const auto buffer = makeBuffer(width, height, kBGRA);
    const PictureRef before = CVPixelBufferCopyPicture(buffer);
    EXPECT_EQ(CVPixelBufferCopyPicture(buffer), before) << "converted once while nobody writes";
    if (!attached.empty()) CVBufferSetAttachment(buffer, kCVImageBufferYCbCrMatrixKey, attached);
    const PictureColor color = CVPixelBufferCopyPicture(buffer)->color;
    EXPECT_EQ(color.matrixName, matrix);
    EXPECT_EQ(color.matrix, matrix == "bt709" ? ColorMatrix::bt709 : ColorMatrix::bt601);
    EXPECT_FALSE(color.fullRange);
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
  const auto buffer = makeBuffer(2, 1, kBGRA);
  const auto fill = [&](uint8_t grey, uint8_t alpha) {
    const uint8_t pixels[] = {grey, grey, grey, alpha, grey, grey, grey, alpha};
    std::copy(std::begin(pixels), std::end(pixels), Locked(buffer, 0).row(0, 0));
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
  EXPECT_EQ(std::vector<uint8_t>(reading.row(0, 0), reading.row(0, 0) + 4), std::vector<uint8_t>(4, 0));
  EXPECT_EQ(reading.row(0, 0)[7], 255);
}

TEST(PictureBuffer, CanBeReadFromManyThreadsAtATime) {
  const PictureRef picture = makePicture(128, 64);
  const auto buffer = CVPixelBufferCreateWithPicture(picture, kFull);
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      const Locked reading(buffer, kCVPixelBufferLock_ReadOnly);
      EXPECT_GT(std::accumulate(reading.row(0, 5), reading.row(0, 5) + 128, 0), 0);
      EXPECT_EQ(CVPixelBufferCopyPicture(buffer), picture);
    });
  }
  for (auto& reader : readers) reader.join();
}

const NSDictionary kPoolAttributes = {{kCVPixelBufferPixelFormatTypeKey, kFull},
                                      {kCVPixelBufferWidthKey, 320.0},
                                      {kCVPixelBufferHeightKey, int64_t{180}},
                                      {kCVPixelBufferMetalCompatibilityKey, true}};

TEST(CVPixelBufferPool, UsesTheMemoryOfReleasedBuffersAgainButNeverSharesIt) {
  CVPixelBufferPoolRef pool;
  ASSERT_EQ(CVPixelBufferPoolCreate({}, kPoolAttributes, &pool), kCVReturnSuccess);
  const auto addressOf = [](const CVPixelBufferRef& buffer) { return Locked(buffer, kCVPixelBufferLock_ReadOnly).row(0, 0); };
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
  using Row = std::tuple<std::string, std::any, CVReturn>;
  for (const auto& [key, value, status] : {Row{kCVPixelBufferPixelFormatTypeKey, {}, kCVReturnInvalidPixelBufferAttributes},
                                           Row{kCVPixelBufferWidthKey, {}, kCVReturnInvalidPixelBufferAttributes},
                                           Row{kCVPixelBufferHeightKey, {}, kCVReturnInvalidPixelBufferAttributes},
                                           Row{kCVPixelBufferWidthKey, -3.0, kCVReturnInvalidArgument},
                                           Row{kCVPixelBufferPixelFormatTypeKey, 7, kCVReturnInvalidPixelFormat}}) {
    NSDictionary attributes = kPoolAttributes;
    attributes[key] = value;
    CVPixelBufferPoolRef pool;
    EXPECT_EQ(CVPixelBufferPoolCreate({}, attributes, &pool), status) << key;
    EXPECT_EQ(pool, nullptr);
  }
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferPoolCreatePixelBuffer(nullptr, &buffer), kCVReturnInvalidArgument);
}

}  // namespace
}  // namespace vidloom
