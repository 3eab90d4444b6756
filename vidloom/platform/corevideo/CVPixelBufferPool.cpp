#include "vidloom/platform/corevideo/CVPixelBufferPool.h"

#include "vidloom/platform/corevideo/CVPixelBufferImpl.h"

namespace vidloom {

class CVPixelBufferPool {
 public:
  CVPixelBufferPool(const CVPixelLayout& layout, NSDictionary attributes, size_t maximumFreeBuffers)
      : layout_(layout),
        attributes_(std::move(attributes)),
        memory_(std::make_shared<CVPixelMemory>(layout.byteCount, maximumFreeBuffers)) {}

  const NSDictionary& attributes() const { return attributes_; }
  void flush() { memory_->flush(); }

  CVPixelBufferRef makeBuffer() {
    auto block = memory_->take();
    return block ? std::make_shared<CVPixelBuffer>(layout_, attributes_, std::move(block)) : nullptr;
  }

 private:
  const CVPixelLayout layout_;
  const NSDictionary attributes_;
  const std::shared_ptr<CVPixelMemory> memory_;
};

namespace {

constexpr double kDefaultFreeBuffers = 4;
constexpr double kMaximumFreeBuffers = 1024;

/// Numbers that are no counts read as zero.
size_t countOf(double number, double maximum) { return number >= 1 && number <= maximum ? static_cast<size_t>(number) : 0; }

}  // namespace

CVReturn CVPixelBufferPoolCreate(const NSDictionary& poolAttributes, const NSDictionary& pixelBufferAttributes,
                                 CVPixelBufferPoolRef* poolOut) {
  if (poolOut == nullptr) return kCVReturnInvalidArgument;
  *poolOut = nullptr;
  double format = 0, width = 0, height = 0, freeBuffers = kDefaultFreeBuffers;
  if (!numberValue(pixelBufferAttributes, kCVPixelBufferPixelFormatTypeKey, format) ||
      !numberValue(pixelBufferAttributes, kCVPixelBufferWidthKey, width) ||
      !numberValue(pixelBufferAttributes, kCVPixelBufferHeightKey, height)) {
    return kCVReturnInvalidPixelBufferAttributes;
  }
  numberValue(poolAttributes, kCVPixelBufferPoolMinimumBufferCountKey, freeBuffers);
  CVPixelLayout layout;
  const CVReturn status = CVPixelLayout::make(static_cast<OSType>(countOf(format, 0xffffffffu)), countOf(width, 0x1p31),
                                              countOf(height, 0x1p31), layout);
  if (status != kCVReturnSuccess) return status;
  *poolOut = std::make_shared<CVPixelBufferPool>(layout, pixelBufferAttributes, countOf(freeBuffers, kMaximumFreeBuffers));
  return kCVReturnSuccess;
}

CVReturn CVPixelBufferPoolCreatePixelBuffer(const CVPixelBufferPoolRef& pool, CVPixelBufferRef* pixelBufferOut) {
  if (pixelBufferOut == nullptr) return kCVReturnInvalidArgument;
  *pixelBufferOut = pool ? pool->makeBuffer() : nullptr;
  if (!pool) return kCVReturnInvalidArgument;
  return *pixelBufferOut ? kCVReturnSuccess : kCVReturnPoolAllocationFailed;
}

const NSDictionary& CVPixelBufferPoolGetPixelBufferAttributes(const CVPixelBufferPoolRef& pool) {
  static const NSDictionary none;
  return pool ? pool->attributes() : none;
}

void CVPixelBufferPoolFlush(const CVPixelBufferPoolRef& pool) {
  if (pool) pool->flush();
}

}  // namespace vidloom
