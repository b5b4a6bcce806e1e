#include "Media/VipsImages.h"

#include "Platform/VipsRuntime.h"

#include <cstring>

namespace keepery::VipsImages {
namespace {

// Bytes that open a HEIF container: an "ftyp" box with one of the HEIF or AVIF brands.
bool heifBrand(std::span<const std::uint8_t> encoded) {
    if (encoded.size() < 12 || std::memcmp(encoded.data() + 4, "ftyp", 4) != 0) {
        return false;
    }
    const std::string brand(reinterpret_cast<const char*>(encoded.data() + 8), 4);
    return brand == "heic" || brand == "heix" || brand == "heim" || brand == "heis" || brand == "hevc" ||
           brand == "hevx" || brand == "mif1" || brand == "msf1" || brand == "avif" || brand == "avis";
}

} // namespace

bool isHeif(std::span<const std::uint8_t> encoded) {
    return heifBrand(encoded);
}

vips::VImage thumbnail(std::span<const std::uint8_t> encoded, int maxPixel) {
    VipsRuntime::ensureStarted();
    // Only the header is read here. Some formats (GIF) are decoded whole whatever the thumbnail's size, so
    // a few bytes claiming a vast canvas would otherwise take gigabytes.
    const vips::VImage header =
        vips::VImage::new_from_source(vips::VSource::new_from_memory(encoded.data(), encoded.size()), "");
    if (static_cast<std::int64_t>(header.width()) * header.height() > mostPixels) {
        throw vips::VError("the picture has more pixels than can be decoded safely");
    }
    return vips::VImage::thumbnail_source(vips::VSource::new_from_memory(encoded.data(), encoded.size()),
                                          maxPixel,
                                          vips::VImage::option()
                                              ->set("height", maxPixel)
                                              ->set("size", VIPS_SIZE_DOWN)
                                              // libheif has already turned the picture by the
                                              // container's own transform; the EXIF tag inside a HEIF
                                              // file only repeats it.
                                              ->set("no_rotate", isHeif(encoded))
                                              // The loader, not the thumbnail operation, decides
                                              // whether a picture that ends early is an error.
                                              ->set("option_string", "fail_on=truncated"));
}

vips::VImage opaqueRGB(const vips::VImage& image) {
    vips::VImage out = image;
    if (out.interpretation() != VIPS_INTERPRETATION_sRGB || out.format() != VIPS_FORMAT_UCHAR) {
        out = out.colourspace(VIPS_INTERPRETATION_sRGB);
    }
    if (out.has_alpha()) {
        out = out.flatten(vips::VImage::option()->set("background", std::vector<double>{255, 255, 255}));
    }
    if (out.bands() > 3) {
        out = out.extract_band(0, vips::VImage::option()->set("n", 3));
    }
    return out.format() == VIPS_FORMAT_UCHAR ? out : out.cast(VIPS_FORMAT_UCHAR);
}

Image toImage(const vips::VImage& image) {
    vips::VImage out = image.colourspace(VIPS_INTERPRETATION_sRGB);
    const bool alpha = out.has_alpha();
    if (out.bands() > (alpha ? 4 : 3)) {
        out = out.extract_band(0, vips::VImage::option()->set("n", alpha ? 4 : 3));
    }
    if (out.format() != VIPS_FORMAT_UCHAR) {
        out = out.cast(VIPS_FORMAT_UCHAR);
    }
    Image result{.width = out.width(), .height = out.height(), .bands = out.bands(), .pixels = {}};
    std::size_t size = 0;
    void* memory = out.write_to_memory(&size);
    const auto* bytes = static_cast<const std::uint8_t*>(memory);
    result.pixels.assign(bytes, bytes + size);
    g_free(memory);
    return result;
}

vips::VImage view(const Image& image) {
    VipsRuntime::ensureStarted();
    return vips::VImage::new_from_memory(const_cast<std::uint8_t*>(image.pixels.data()), image.pixels.size(),
                                         image.width, image.height, image.bands, VIPS_FORMAT_UCHAR)
        .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

std::vector<std::uint8_t> take(VipsBlob* blob) {
    std::size_t size = 0;
    const auto* data = static_cast<const std::uint8_t*>(vips_blob_get(blob, &size));
    std::vector<std::uint8_t> bytes(data, data + size);
    vips_area_unref(VIPS_AREA(blob));
    return bytes;
}

} // namespace keepery::VipsImages
