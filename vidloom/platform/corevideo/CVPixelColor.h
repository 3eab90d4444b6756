// How the colour attachments of a pixel buffer and the tags of a picture translate into each other.
#pragma once

#include <map>
#include <string>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// What untagged pixels of that size are taken for: limited range, 601 up to 576 lines and 720 columns, 709 above.
PictureColor defaultPictureColor(size_t width, size_t height);
/// `color` as far as the attachments say nothing else. Attachments that name no matrix of ours leave it as it is.
PictureColor pictureColorWithAttachments(PictureColor color, const std::map<std::string, std::string>& attachments);
/// The attachment under one of the three colour keys that stands for the picture's colour; empty for any other key.
std::string colorAttachment(const PictureColor& color, const std::string& key);

}  // namespace vidloom
