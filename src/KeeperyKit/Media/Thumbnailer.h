#pragma once

#include "Media/Image.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// Encodes pictures as JPEG or PNG and makes small upright JPEGs from encoded pictures. Every operation
// reports failure as absent and never throws; none keeps anything between calls. Any thread.
namespace keepery::Thumbnailer {

// `image` as a baseline sRGB JPEG at `quality` (0 to 1; 1 is best); an alpha channel is flattened onto
// white. Absent when the image is empty or cannot be encoded.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> jpeg(const Image& image, double quality);

// `image` as an 8-bit sRGB PNG, with its alpha channel when it has one. Absent when it cannot be encoded.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> png(const Image& image);

// The picture in `encoded` (any format libvips decodes: JPEG, PNG, WebP, HEIF, TIFF, GIF ...) upright, its
// longest side at most `maxPixel` (never enlarged), as a JPEG at `quality`. The picture is reduced while it
// is decoded where the format allows it. Absent for bytes that are not a whole picture (a truncated JPEG
// included) and for a `maxPixel` below 1.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> jpeg(std::span<const std::uint8_t> encoded,
                                                            int maxPixel, double quality);

} // namespace keepery::Thumbnailer
