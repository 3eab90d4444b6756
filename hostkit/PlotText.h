// Texts and numbers in pictures.
#pragma once

#include <string>

namespace vidloom {

/// In one line of valid UTF-8 that XML takes: control characters become spaces, what is no UTF-8 or no character the replacement
/// character.
std::string readableText(const std::string& text);

/// The same as it is written between the tags of XML.
std::string xmlText(const std::string& text);

/// The host kit's font in that size, as TextStyle names it.
std::string plotFont(double sizePixels, bool isBold);

/// In plain digits with at most that many decimals, without zeros at the end; "0" rather than "-0". With a point, whatever the
/// locale.
std::string plotNumber(double value, int mostDecimals);

}  // namespace vidloom
