// GIF through giflib: the first frame of the file on the logical screen, as indexed colour with the
// transparent index of its graphics control block.
#include "image/codecs.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <gif_lib.h>

namespace vellum::image::codecs {

namespace {

int read_memory(GifFileType* gif, GifByteType* out, int length) {
    auto* src = static_cast<memory_source*>(gif->UserData);
    return static_cast<int>(src->take(out, static_cast<std::size_t>(std::max(length, 0))));
}

/// An open GIF, closed with its holder.
struct gif_reader {
    memory_source source;
    GifFileType* gif = nullptr;
    explicit gif_reader(bytes::bytes const& data) {
        source = {data.view().data(), data.size(), 0};
        int error = 0;
        gif = DGifOpen(&source, read_memory, &error);
    }
    gif_reader(gif_reader const&) = delete;
    gif_reader& operator=(gif_reader const&) = delete;
    ~gif_reader() {
        if (gif) {
            int error = 0;
            DGifCloseFile(gif, &error);
        }
    }
};

bool is_gif(bytes::bytes const& data) {
    auto const c = data.chars();
    return c.starts_with("GIF87a") || c.starts_with("GIF89a");
}

// Slurps the file; fails if it holds no frame.
bool slurp(gif_reader& r) {
    return r.gif && DGifSlurp(r.gif) == GIF_OK && r.gif->ImageCount > 0 && r.gif->SavedImages[0].RasterBits;
}

std::optional<int> transparent_index(GifFileType* gif) {
    GraphicsControlBlock gcb{};
    if (DGifSavedExtensionToGCB(gif, 0, &gcb) == GIF_OK && gcb.TransparentColor != NO_TRANSPARENT_COLOR) {
        return gcb.TransparentColor;
    }
    return std::nullopt;
}

} // namespace

result<image_info> gif_header(bytes::bytes const& data, bool check_data) {
    if (!is_gif(data)) {
        return fail("Could not load GIF file");
    }
    gif_reader r(data);
    if (!r.gif || r.gif->SWidth <= 0 || r.gif->SHeight <= 0) {
        return fail("Could not load GIF file");
    }
    image_info info{.image_width = r.gif->SWidth, .image_height = r.gif->SHeight};
    // The frames are decoded whole by giflib; a check is made only where that costs little memory.
    if (check_data && static_cast<std::int64_t>(info.image_width) * info.image_height <= (std::int64_t{1} << 24)) {
        if (!slurp(r)) {
            return fail("Could not load GIF file");
        }
        info.image_has_alpha = transparent_index(r.gif).has_value();
    }
    return info;
}

result<image> gif_decode(bytes::bytes const& data) {
    gif_reader r(data);
    if (!is_gif(data) || !slurp(r)) {
        return fail("Could not load GIF file");
    }
    auto* gif = r.gif;
    auto const& frame = gif->SavedImages[0];
    ColorMapObject const* map = frame.ImageDesc.ColorMap ? frame.ImageDesc.ColorMap : gif->SColorMap;
    if (!map || map->ColorCount <= 0) {
        return fail("Could not load GIF file");
    }
    int const w = gif->SWidth;
    int const h = gif->SHeight;
    auto const mask = transparent_index(gif);
    // Screen pixels outside the frame show the background: transparent if the frame has a transparent
    // index, the background colour otherwise.
    auto const fill = static_cast<std::uint8_t>(mask ? *mask : (gif->SBackGroundColor < map->ColorCount ? gif->SBackGroundColor : 0));
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(w) * h, fill);
    auto const& d = frame.ImageDesc;
    for (int y = 0; y < d.Height; ++y) {
        int const sy = d.Top + y;
        if (sy < 0 || sy >= h) {
            continue;
        }
        for (int x = 0; x < d.Width; ++x) {
            int const sx = d.Left + x;
            if (sx < 0 || sx >= w) {
                continue;
            }
            pixels[static_cast<std::size_t>(sy) * w + sx] = frame.RasterBits[static_cast<std::size_t>(y) * d.Width + x];
        }
    }
    std::vector<std::uint8_t> palette;
    for (int i = 0; i < map->ColorCount; ++i) {
        palette.push_back(map->Colors[i].Red);
        palette.push_back(map->Colors[i].Green);
        palette.push_back(map->Colors[i].Blue);
    }
    image_indexed indexed{.image_indexed_colors = map->ColorCount,
                          .image_indexed_palette = bytes::from_vector(std::move(palette)),
                          .image_indexed_mask = mask};
    return image{.image_info = {.image_width = w, .image_height = h, .image_has_alpha = mask.has_value()},
                 .image_data = image_data_indexed{.indexed = std::move(indexed),
                                                  .buffer = {buffer_kind::image_buffer_8_bit,
                                                             bytes::from_vector(std::move(pixels))}}};
}

} // namespace vellum::image::codecs
