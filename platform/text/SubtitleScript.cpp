#include "platform/text/SubtitleScript.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "platform/text/TextLayout.h"

extern "C" {
#include <ass/ass.h>
}

namespace kestrel {

namespace {

struct LibraryDeleter {
  void operator()(ASS_Library* library) const { ass_library_done(library); }
};
struct RendererDeleter {
  void operator()(ASS_Renderer* renderer) const { ass_renderer_done(renderer); }
};
struct TrackDeleter {
  void operator()(ASS_Track* track) const { ass_free_track(track); }
};

using LibraryPtr = std::unique_ptr<ASS_Library, LibraryDeleter>;
using RendererPtr = std::unique_ptr<ASS_Renderer, RendererDeleter>;
using TrackPtr = std::unique_ptr<ASS_Track, TrackDeleter>;

/// Pixels from the upper left corner of the canvas; the right and lower edges are outside.
struct Box {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;

  bool touches(const Box& other) const {
    return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
  }
  Box with(const Box& other) const {
    return {std::min(left, other.left), std::min(top, other.top), std::max(right, other.right),
            std::max(bottom, other.bottom)};
  }
};

/// A mask of one colour, and what it covers of the canvas.
struct Layer {
  const ASS_Image* mask;
  Box box;
};

/// What a mask covers, within itself: libass leaves room around it.
Box coveredBy(const ASS_Image& mask) {
  Box box{mask.w, mask.h, 0, 0};
  for (int y = 0; y < mask.h; ++y) {
    const uint8_t* row = mask.bitmap + static_cast<ptrdiff_t>(y) * mask.stride;
    const uint8_t* const end = row + mask.w;
    const auto isCovered = [](uint8_t share) { return share != 0; };
    const uint8_t* const first = std::find_if(row, end, isCovered);
    if (first == end) continue;
    const auto behind =
        std::find_if(std::make_reverse_iterator(end), std::make_reverse_iterator(first), isCovered);
    box =
        box.with({static_cast<int>(first - row), y, static_cast<int>(behind.base() - row), y + 1});
  }
  return box;
}

std::vector<Layer> layersOf(const ASS_Image* masks) {
  std::vector<Layer> layers;
  for (; masks; masks = masks->next) {
    const Box box = coveredBy(*masks);
    if (box.left >= box.right) continue;
    layers.push_back({masks,
                      {masks->dst_x + box.left, masks->dst_y + box.top, masks->dst_x + box.right,
                       masks->dst_y + box.bottom}});
  }
  return layers;
}

/// The boxes that hold all layers and do not overlap.
std::vector<Box> boxesOf(const std::vector<Layer>& layers) {
  std::vector<Box> boxes;
  for (const Layer& layer : layers) {
    Box box = layer.box;
    // A box that has grown may touch others.
    for (auto other = boxes.begin(); other != boxes.end();) {
      if (!box.touches(*other)) {
        ++other;
        continue;
      }
      box = box.with(*other);
      boxes.erase(other);
      other = boxes.begin();
    }
    boxes.push_back(box);
  }
  return boxes;
}

/// Colour with its alpha multiplied in, and alpha, from 0 to 1.
struct Pixel {
  float red = 0;
  float green = 0;
  float blue = 0;
  float alpha = 0;

  void cover(const Pixel& color, float share) {
    red += (color.red - red) * share;
    green += (color.green - green) * share;
    blue += (color.blue - blue) * share;
    alpha += (1 - alpha) * share;
  }
};

/// libass counts transparency: 0 is opaque.
Pixel colorOf(const ASS_Image& mask) {
  const auto part = [&](int shift) { return static_cast<float>(mask.color >> shift & 0xFF) / 255; };
  return {part(24), part(16), part(8), 1 - part(0)};
}

/// Lays a layer over the pixels of a box that holds it.
void draw(const Layer& layer, const Box& box, std::vector<Pixel>& pixels) {
  const ASS_Image& mask = *layer.mask;
  const Pixel color = colorOf(mask);
  const float step = color.alpha / 255;
  const auto width = static_cast<size_t>(box.right - box.left);
  for (int y = layer.box.top; y < layer.box.bottom; ++y) {
    const uint8_t* shares = mask.bitmap + static_cast<ptrdiff_t>(y - mask.dst_y) * mask.stride;
    Pixel* row = pixels.data() + static_cast<size_t>(y - box.top) * width;
    for (int x = layer.box.left; x < layer.box.right; ++x)
      if (const uint8_t share = shares[x - mask.dst_x]; share != 0)
        row[x - box.left].cover(color, static_cast<float>(share) * step);
  }
}

std::shared_ptr<const BitmapImage> bitmapOf(const std::vector<Pixel>& pixels, const Box& box) {
  const int width = box.right - box.left;
  const int height = box.bottom - box.top;
  const std::shared_ptr<uint8_t[]> bytes(new uint8_t[pixels.size() * 4]);
  uint8_t* to = bytes.get();
  const auto write = [&to](float value) { *to++ = static_cast<uint8_t>(std::lround(value * 255)); };
  for (const Pixel& pixel : pixels) {
    const float whole = pixel.alpha > 0 ? 1 / pixel.alpha : 0;
    write(std::min(pixel.red * whole, 1.0F));
    write(std::min(pixel.green * whole, 1.0F));
    write(std::min(pixel.blue * whole, 1.0F));
    write(pixel.alpha);
  }
  return BitmapImage::sharing(bytes, width, height, width * 4);
}

uint32_t packed(const Color& color) {
  const auto part = [](double value) {
    return static_cast<uint32_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
  };
  return part(color.red) << 24 | part(color.green) << 16 | part(color.blue) << 8 |
         (255 - part(color.alpha));
}

/// Makes the style that lines have by default look like `plain`.
void restyle(ASS_Track& track, const SubtitleScript::Style& plain, int height) {
  if (track.default_style < 0 || track.default_style >= track.n_styles || height <= 0) return;
  ASS_Style& style = track.styles[track.default_style];
  const double scale = static_cast<double>(track.PlayResY) / height;
  if (char* family = strdup(plain.font.family.c_str())) {
    std::free(style.FontName);  // libass allocated it so
    style.FontName = family;
  }
  // The size of a font is that of its lines there.
  style.FontSize = plain.font.size * lineHeight(plain.font) * scale;
  style.Bold = plain.font.weight;
  style.Italic = plain.font.italic ? 1 : 0;
  style.PrimaryColour = packed(plain.color);
  style.SecondaryColour = style.PrimaryColour;
  style.OutlineColour = packed({0, 0, 0, plain.color.alpha});
  style.BackColour = style.OutlineColour;
  style.BorderStyle = 1;
  // By the distances between the places of a script, whose pixels may be of any shape, outlines
  // would be wider in one direction than in the other.
  track.ScaledBorderAndShadow = 0;
  style.Outline = plain.outline * scale;
  style.Shadow = 0;
  style.Alignment = 2;
  style.MarginL = style.MarginR = static_cast<int>(std::lround(plain.beside * scale));
  style.MarginV = static_cast<int>(std::lround(plain.below * scale));
}

}  // namespace

struct SubtitleScript::State {
  LibraryPtr library;
  TrackPtr track;
  RendererPtr renderer;
  Canvas canvas;
  bool isNew = true;  // what was drawn last, if anything, was something else

  void useCanvas(const Canvas& wanted);
};

SubtitleScript::SubtitleScript(std::string_view header) : state_(std::make_unique<State>()) {
  state_->library.reset(ass_library_init());
  if (!state_->library) throw std::bad_alloc();
  ass_set_message_cb(
      state_->library.get(), [](int, const char*, va_list, void*) {}, nullptr);
  ass_set_extract_fonts(state_->library.get(), 1);
  state_->track.reset(ass_new_track(state_->library.get()));
  if (!state_->track) throw std::bad_alloc();
  std::string text(header);
  ass_process_codec_private(state_->track.get(), text.data(), static_cast<int>(text.size()));
  // After a seek decoders count from the beginning again.
  ass_set_check_readorder(state_->track.get(), 0);
}

SubtitleScript::~SubtitleScript() = default;
SubtitleScript::SubtitleScript(SubtitleScript&&) noexcept = default;
SubtitleScript& SubtitleScript::operator=(SubtitleScript&&) noexcept = default;

void SubtitleScript::addFont(const std::string& name, std::span<const uint8_t> file) {
  // It is copied.
  const auto* bytes = reinterpret_cast<const char*>(file.data());
  ass_add_font(state_->library.get(), const_cast<char*>(name.c_str()), const_cast<char*>(bytes),
               static_cast<int>(file.size()));
}

void SubtitleScript::add(std::string_view line, int64_t start, int64_t duration) {
  std::string text(line);
  ass_process_chunk(state_->track.get(), text.data(), static_cast<int>(text.size()), start,
                    duration);
}

void SubtitleScript::clear() {
  ass_flush_events(state_->track.get());
  state_->isNew = true;
}

void SubtitleScript::State::useCanvas(const Canvas& wanted) {
  if (!renderer) {
    renderer.reset(ass_renderer_init(library.get()));
    if (!renderer) throw std::bad_alloc();
    ass_set_fonts(renderer.get(), nullptr, "sans-serif", ASS_FONTPROVIDER_AUTODETECT, nullptr, 1);
  } else if (canvas == wanted) {
    return;
  }
  canvas = wanted;
  isNew = true;
  ass_set_frame_size(renderer.get(), wanted.width, wanted.height);
  Size picture = wanted.picture;
  if (wanted.plain) {
    restyle(*track, *wanted.plain, wanted.height);
    // In pixels of this the outline is counted.
    picture = {track->PlayResY * static_cast<double>(wanted.width) / std::max(wanted.height, 1),
               static_cast<double>(track->PlayResY)};
  }
  ass_set_storage_size(renderer.get(), static_cast<int>(std::lround(picture.width)),
                       static_cast<int>(std::lround(picture.height)));
}

std::optional<std::vector<SubtitleScript::Part>> SubtitleScript::partsAt(int64_t time,
                                                                         const Canvas& canvas) {
  state_->useCanvas(canvas);
  int change = 0;
  const ASS_Image* masks =
      ass_render_frame(state_->renderer.get(), state_->track.get(), time, &change);
  if (change == 0 && !std::exchange(state_->isNew, false)) return std::nullopt;
  state_->isNew = false;
  std::vector<Part> parts;
  std::vector<Pixel> pixels;
  const std::vector<Layer> layers = layersOf(masks);
  for (const Box& box : boxesOf(layers)) {
    const int width = box.right - box.left;
    const int height = box.bottom - box.top;
    pixels.assign(static_cast<size_t>(width) * static_cast<size_t>(height), Pixel{});
    for (const Layer& layer : layers)
      if (box.touches(layer.box)) draw(layer, box, pixels);
    parts.push_back(
        {bitmapOf(pixels, box),
         {static_cast<double>(box.left), static_cast<double>(canvas.height - box.bottom)}});
  }
  return parts;
}

}  // namespace kestrel
