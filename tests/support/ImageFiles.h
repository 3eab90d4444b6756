// Image files made on the spot.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace vidloom::testing {

using Rgba = std::array<uint8_t, 4>;

/// Bytes R, G, B, A of a picture, row by row from the top.
std::string rgbaBytes(int width, int height, const std::function<Rgba(int x, int y)>& color);
/// Upper left red, upper right green, lower left blue, lower right white; all of that alpha.
Rgba quadrant(int x, int y, int width, int height, uint8_t alpha = 255);

/// Writes those pixels `frames` times into a file of the scratch folder with the `ffmpeg` program, which takes `options` before the
/// name. Throws std::runtime_error where it fails.
std::filesystem::path makeImage(const std::string& name, int width, int height, const std::string& rgba,
                                const std::vector<std::string>& options, int frames = 1);

/// An EXIF block (a TIFF structure) that notes that orientation.
std::string exifBlock(int orientation, bool bigEndian);
/// Copies of an image file's bytes with an EXIF block.
std::string withJpegExif(const std::string& jpeg, const std::string& exif);
std::string withPngExif(const std::string& png, const std::string& exif);
std::string withWebpExif(const std::string& webp, const std::string& exif, int width, int height);
/// A copy of a TIFF file (little endian) that notes that orientation.
std::string withTiffOrientation(const std::string& tiff, int orientation);
/// A copy of a TIFF file (little endian) with that tag, a 16-bit number.
std::string withTiffTag(const std::string& tiff, int tag, int value);
/// A PNG chunk with its length and check sum.
std::string pngChunk(const std::string& type, const std::string& body);

}  // namespace vidloom::testing
