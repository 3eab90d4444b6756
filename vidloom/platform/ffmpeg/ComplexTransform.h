// The complex Fourier transform.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

struct AVTXContext;

namespace vidloom {

/// The forward transform of `length` complex numbers, the sum of z[n] exp(-2 pi i k n / length), unscaled. Immutable: any number of
/// threads may transform at a time.
class ComplexTransform {
 public:
  /// `length` is a power of two, 2 at least. Null where memory has run out.
  static std::unique_ptr<const ComplexTransform> make(size_t length);
  ~ComplexTransform();
  ComplexTransform(const ComplexTransform&) = delete;
  ComplexTransform& operator=(const ComplexTransform&) = delete;

  /// Both arrays hold real and imaginary parts in turn, are aligned to 64 bytes and do not overlap. What `in` holds
  /// afterwards is open.
  void run(float* in, float* out) const;

  /// The address alignment of run()'s arrays.
  static constexpr size_t kAlignment = 64;

 private:
  using Function = void (*)(AVTXContext* context, void* out, void* in, ptrdiff_t stride);
  explicit ComplexTransform(size_t length) : length_(length) {}
  bool prepare();
  void joinHalves(float* numbers) const;

  const size_t length_;
  AVTXContext* context_ = nullptr;
  Function function_ = nullptr;
  std::unique_ptr<const ComplexTransform> half_;  ///< for lengths that the library has no fast code for
  std::vector<float> roots_;                      ///< exp(-2 pi i k / length) for joining halves
};

}  // namespace vidloom
