// The filters that image-processing images can be sent through.
#pragma once

#include <any>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/coreimage/CIImage.h"

namespace vidloom {

struct NamedFilter;
class CIFilter;
using CIFilterRef = std::shared_ptr<CIFilter>;

/// A number that a filter takes.
struct CIFilterParameter {
  std::string key;  ///< "inputRadius"
  double defaultValue = 0, minimum = 0, maximum = 0;
  std::string description;  ///< what it is and its unit
};

/// A filter by name with an input image and values for its parameters. One thread at a time.
class CIFilter {
 public:
  /// All names, sorted.
  static std::vector<std::string> filterNames();
  /// With the defaults. Null with an error for an unknown name.
  [[nodiscard]] static CIFilterRef filterWithName(const std::string& name, std::optional<NSError>* error = nullptr);

  const std::string& name() const;
  const std::string& description() const;
  const std::vector<CIFilterParameter>& parameters() const { return parameters_; }

  void setInputImage(CIImageRef inputImage) { inputImage_ = std::move(inputImage); }
  const CIImageRef& inputImage() const { return inputImage_; }
  /// False with an error, and nothing changed, for a key that is none of the filter's, and for a value that is no number or out of
  /// the parameter's range.
  [[nodiscard]] bool setValue(const std::any& value, const std::string& forKey, std::optional<NSError>* error = nullptr);
  /// Nothing for a key that is none of the filter's.
  std::optional<double> valueForKey(const std::string& key) const;
  /// The input image through the filter as it is set now; null without one.
  CIImageRef outputImage() const;

 private:
  explicit CIFilter(const NamedFilter& filter);
  std::optional<size_t> indexOf(const std::string& key) const;

  const NamedFilter& filter_;
  std::vector<CIFilterParameter> parameters_;
  std::vector<double> values_;
  CIImageRef inputImage_;
};

}  // namespace vidloom
