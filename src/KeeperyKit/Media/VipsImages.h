#pragma once

// Internal to the media modules: the one place that speaks libvips. Never include this from a public
// header; the engine's interfaces pass `Image` and encoded bytes.

#include "Media/Image.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>
#include <vips/vips8>

namespace keepery::VipsImages {

// Whether `encoded` is in a format that libvips decodes without a reduced-size load (HEIF, whose
// container rotates the picture by itself).
[[nodiscard]] bool isHeif(std::span<const std::uint8_t> encoded);

// The most pixels a picture may have to be decoded: 2^28, a 16384 × 16384 square, past every camera's.
inline constexpr std::int64_t mostPixels = std::int64_t{1} << 28;

// Decodes `encoded` and shrinks it while loading so that its longest side is at most `maxPixel`, never
// enlarging; upright (the orientation tag applied, or the HEIF container's own transform). A truncated or
// corrupt picture fails, and so does one of more than `mostPixels`. `encoded` must outlive the returned
// image, which is computed lazily. Throws vips::VError.
[[nodiscard]] vips::VImage thumbnail(std::span<const std::uint8_t> encoded, int maxPixel);

// `image` decoded into memory as 8-bit sRGB, RGB or RGBA. Throws vips::VError.
[[nodiscard]] Image toImage(const vips::VImage& image);

// A libvips view of `image`'s pixels, without copying: `image` must outlive it.
[[nodiscard]] vips::VImage view(const Image& image);

// `image` as 8-bit sRGB with three bands; an alpha channel is flattened onto white. Throws vips::VError.
[[nodiscard]] vips::VImage opaqueRGB(const vips::VImage& image);

// The bytes of a libvips blob, which it releases. Never throws but for allocation.
[[nodiscard]] std::vector<std::uint8_t> take(VipsBlob* blob);

} // namespace keepery::VipsImages
