#include "platform/text/TextLayout.h"

#include "platform/text/CleanText.h"

#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrel {

namespace {

/// Far more than a caption has. It bounds the time that a layout takes, which for words that long
/// grows with the square.
constexpr size_t kMaximumTextLength = size_t{16} * 1024;
constexpr double kMaximumFontSize = 4096;
constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kSoftHyphen = "\u00AD";

/// Making a font map reads the font configuration, so each thread keeps one, and with it the fonts
/// that it has loaded.
PangoFontMap* fontMapOfThread() {
  thread_local const FontMapPtr map(pango_cairo_font_map_new());
  return map.get();
}

/// Chinese and Japanese share characters that they draw differently. Kana tell that a text is
/// Japanese, Hangul that it is Korean; of other texts nothing is known.
const char* languageOf(const std::string& text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto size = static_cast<int32_t>(text.size());
  for (int32_t next = 0; next < size;) {
    UChar32 c = 0;
    U8_NEXT(bytes, next, size, c);
    UErrorCode error = U_ZERO_ERROR;
    switch (uscript_getScript(c, &error)) {
      case USCRIPT_HIRAGANA:
      case USCRIPT_KATAKANA:
        return "ja";
      case USCRIPT_HANGUL:
        return "ko";
      default:
        break;
    }
  }
  return nullptr;
}

double component(double value) { return value > 0 ? std::min(value, 1.0) : 0; }

guint16 component16(double value) {
  return static_cast<guint16>(std::lround(component(value) * 65535));
}

/// Whole pixels keep glyphs and lines equally far from each other, and colour fringes are wrong on
/// anything but a screen.
PangoContextPtr makeContext(const std::string& text) {
  PangoContextPtr context(pango_font_map_create_context(fontMapOfThread()));
  const FontOptionsPtr options(cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_SLIGHT);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_ON);
  pango_cairo_context_set_font_options(context.get(), options.get());
  pango_context_set_round_glyph_positions(context.get(), TRUE);
  if (const char* language = languageOf(text)) {
    pango_context_set_language(context.get(), pango_language_from_string(language));
  }
  return context;
}

FontDescriptionPtr describe(const Font& font) {
  const CleanText family = cleanText(font.family, kMaximumTextLength);
  FontDescriptionPtr description(pango_font_description_new());
  pango_font_description_set_family(description.get(), family.text.c_str());
  pango_font_description_set_absolute_size(description.get(),
                                           std::min(font.size, kMaximumFontSize) * PANGO_SCALE);
  pango_font_description_set_weight(description.get(),
                                    static_cast<PangoWeight>(std::clamp(font.weight, 100, 1000)));
  pango_font_description_set_style(description.get(),
                                   font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
  return description;
}

/// The attributes of the runs, at their places in the clean text.
AttrListPtr attributesOf(const AttributedString& string, const CleanText& clean,
                         double sharedAlpha) {
  AttrListPtr list(pango_attr_list_new());
  // Words that are too long for a line break without a hyphen, unless the text brings its own.
  if (clean.text.find(kSoftHyphen) == std::string::npos) {
    pango_attr_list_insert(list.get(), pango_attr_insert_hyphens_new(FALSE));
  }
  const size_t size = string.text().size();
  for (const TextRun& run : string.runs()) {
    const size_t from = std::min(run.location, size);
    const size_t to = from + std::min(run.length, size - from);
    const auto add = [&](PangoAttribute* attribute) {
      attribute->start_index = static_cast<guint>(clean.places[from]);
      attribute->end_index = static_cast<guint>(clean.places[to]);
      pango_attr_list_change(list.get(), attribute);
    };
    if (run.bold) {
      add(pango_attr_weight_new(static_cast<PangoWeight>(
          std::clamp<int>(string.attributes().font.weight, PANGO_WEIGHT_BOLD, 1000))));
    }
    if (run.italic) add(pango_attr_style_new(PANGO_STYLE_ITALIC));
    if (run.underline) add(pango_attr_underline_new(PANGO_UNDERLINE_SINGLE));
    if (run.strikethrough) add(pango_attr_strikethrough_new(TRUE));
    if (run.color) {
      const Color& color = *run.color;
      add(pango_attr_foreground_new(component16(color.red), component16(color.green),
                                    component16(color.blue)));
      // To the layout engine an alpha of 0 means none is given.
      const double alpha = sharedAlpha > 0 ? component(color.alpha) / sharedAlpha : 0;
      add(pango_attr_foreground_alpha_new(std::max<guint16>(1, component16(alpha))));
    }
  }
  return list;
}

double largestAlpha(const AttributedString& string) {
  double alpha = component(string.attributes().foregroundColor.alpha);
  for (const TextRun& run : string.runs()) {
    if (run.color) alpha = std::max(alpha, component(run.color->alpha));
  }
  return alpha;
}

void setLineBreakMode(PangoLayout* layout, LineBreakMode mode, double width) {
  // Beyond what the layout engine can count, a width is no limit.
  constexpr double kMaximumWidth = 1.0 * std::numeric_limits<int>::max() / PANGO_SCALE;
  const int units =
      width < kMaximumWidth ? static_cast<int>(std::max(1.0, std::floor(width * PANGO_SCALE))) : -1;
  pango_layout_set_width(layout, mode == LineBreakMode::kByClipping ? -1 : units);
  pango_layout_set_wrap(
      layout, mode == LineBreakMode::kByCharWrapping ? PANGO_WRAP_CHAR : PANGO_WRAP_WORD_CHAR);
  switch (mode) {
    case LineBreakMode::kByTruncatingHead:
      return pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_START);
    case LineBreakMode::kByTruncatingTail:
      return pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
    case LineBreakMode::kByTruncatingMiddle:
      return pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_MIDDLE);
    default:
      return pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_NONE);
  }
}

/// Where in the layout's text, from `begin` to `end`, what readers take for one character begins.
std::vector<size_t> characterStarts(PangoLayout* layout, size_t begin, size_t end) {
  const char* text = pango_layout_get_text(layout);
  int count = 0;
  const PangoLogAttr* attributes = pango_layout_get_log_attrs_readonly(layout, &count);
  std::vector<size_t> starts;
  glong index = g_utf8_pointer_to_offset(text, text + begin);
  for (const char* at = text + begin; at < text + end && index < count;
       at = g_utf8_next_char(at), ++index) {
    if (attributes[index].is_cursor_position) starts.push_back(static_cast<size_t>(at - text));
  }
  return starts;
}

size_t withoutTrailingSpace(const std::string& text, size_t begin, size_t end) {
  while (end > begin && (text[end - 1] == ' ' || text[end - 1] == '\t')) --end;
  return end;
}

}  // namespace

TextLayout::TextLayout(const AttributedString& string, const Size& size, bool truncates)
    : size_(size),
      alignment_(string.attributes().paragraphStyle.alignment),
      color_(string.attributes().foregroundColor),
      outline_(std::clamp(string.attributes().outline, 0.0, kMaximumFontSize)),
      outlineColor_(string.attributes().outlineColor),
      sharedAlpha_(largestAlpha(string)) {
  const bool hasRoom = size.width > 0 && size.height > 0;
  if (!hasRoom || !(string.attributes().font.size > 0)) return;

  const CleanText clean = cleanText(string.text(), kMaximumTextLength);
  if (clean.text.empty()) return;

  const PangoContextPtr context = makeContext(clean.text);
  layout_.reset(pango_layout_new(context.get()));
  const FontDescriptionPtr font = describe(string.attributes().font);
  pango_layout_set_font_description(layout_.get(), font.get());
  const AttrListPtr attributes = attributesOf(string, clean, sharedAlpha_);
  pango_layout_set_attributes(layout_.get(), attributes.get());
  setLineBreakMode(layout_.get(), string.attributes().paragraphStyle.lineBreakMode, size.width);
  pango_layout_set_justify(layout_.get(), alignment_ == TextAlignment::kJustified);

  setText(clean.text);
  if (truncates) truncateToHeight(clean.text);
}

void TextLayout::setText(const std::string& text) {
  pango_layout_set_text(layout_.get(), text.data(), static_cast<int>(text.size()));
  readLines();
}

/// Takes characters from the last visible line until that line and an ellipsis fit.
void TextLayout::truncateToHeight(const std::string& text) {
  const size_t visible = linesThatFit();
  if (visible == lines_.size()) return;

  const PangoLayoutLine* last = lines_[visible - 1].line;
  const auto begin = static_cast<size_t>(last->start_index);
  size_t end = begin + static_cast<size_t>(last->length);
  std::vector<size_t> starts = characterStarts(layout_.get(), begin, end);
  for (;;) {
    setText(text.substr(0, withoutTrailingSpace(text, begin, end)).append(kEllipsis));
    if (lines_.size() <= visible || starts.empty()) break;
    end = starts.back();
    starts.pop_back();
  }
  lines_.resize(std::min(lines_.size(), visible));
}

void TextLayout::readLines() {
  lines_.clear();
  const LayoutIterPtr iter(pango_layout_get_iter(layout_.get()));
  do {
    PangoRectangle inLayout;
    pango_layout_iter_get_line_extents(iter.get(), nullptr, &inLayout);
    Line line;
    line.line = pango_layout_iter_get_line_readonly(iter.get());
    line.baseline = pango_units_to_double(pango_layout_iter_get_baseline(iter.get()));
    line.bottom = pango_units_to_double(inLayout.y + inLayout.height);

    PangoRectangle ink;
    PangoRectangle logical;
    pango_layout_line_get_extents(line.line, &ink, &logical);
    line.width = pango_units_to_double(logical.width);
    if (ink.width > 0 && ink.height > 0) {
      const int left = logical.x - ink.x;
      const int right = ink.x + ink.width - logical.x - logical.width;
      const int above = logical.y - ink.y;
      const int below = ink.y + ink.height - logical.y - logical.height;
      const auto reach = [this](int units) {
        return std::max(0.0, pango_units_to_double(units) + outline_);
      };
      line.beside = reach(std::max(left, right));
      line.above = std::ceil(reach(above));
      line.below = std::ceil(reach(below));
    }
    lines_.push_back(line);
  } while (pango_layout_iter_next_line(iter.get()));
}

size_t TextLayout::linesThatFit() const {
  const auto beyond = std::find_if(lines_.begin(), lines_.end(), [this](const Line& line) {
    return topMargin() + line.bottom > size_.height;
  });
  return std::max<size_t>(1, static_cast<size_t>(beyond - lines_.begin()));
}

double TextLayout::widest() const {
  double widest = 0;
  for (const Line& line : lines_) widest = std::max(widest, line.width);
  return widest;
}

double TextLayout::sideMargin() const {
  double margin = 0;
  for (const Line& line : lines_) margin = std::max(margin, line.beside);
  return std::ceil(margin);
}

double TextLayout::width() const {
  const double text = widest();
  return text > 0 ? std::min(std::ceil(text + 2 * sideMargin()), size_.width) : 0;
}

double TextLayout::height() const {
  if (lines_.empty()) return 0;
  return topMargin() + std::ceil(lines_.back().bottom) + lines_.back().below;
}

double TextLayout::leftEdgeOf(const Line& line, double margin) const {
  const double right = size_.width - margin - line.width;
  switch (alignment_) {
    case TextAlignment::kLeft:
      return margin;
    case TextAlignment::kRight:
      return right;
    case TextAlignment::kCenter:
      return (size_.width - line.width) / 2;
    default:
      break;
  }
  const PangoDirection direction = pango_layout_line_get_resolved_direction(line.line);
  return direction == PANGO_DIRECTION_RTL ? right : margin;
}

void TextLayout::draw(cairo_t* cairo) const {
  // Where there is room, strokes that reach beyond the line's ends stay inside of the rectangle.
  const double margin = std::clamp((size_.width - widest()) / 2, 0.0, sideMargin());
  const auto drawLines = [&](const Color& color, double alpha, auto&& draw) {
    cairo_set_source_rgba(cairo, component(color.red), component(color.green),
                          component(color.blue), alpha);
    for (const Line& line : lines_) {
      cairo_move_to(cairo, std::floor(leftEdgeOf(line, margin)), topMargin() + line.baseline);
      draw(cairo, line.line);
    }
  };
  if (outline_ > 0) {
    // Half of a stroke lies inside of its glyph, which is drawn over it.
    cairo_set_line_width(cairo, 2 * outline_);
    cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
    drawLines(outlineColor_, component(outlineColor_.alpha),
              [](cairo_t* target, PangoLayoutLine* line) {
                pango_cairo_layout_line_path(target, line);
                cairo_stroke(target);
              });
  }
  drawLines(color_, sharedAlpha_ > 0 ? component(color_.alpha) / sharedAlpha_ : 0,
            pango_cairo_show_layout_line);
}

double lineHeight(const Font& font) {
  constexpr double kSize = 100;
  Font measured = font;
  measured.size = kSize;
  const PangoContextPtr context = makeContext({});
  const FontMetricsPtr metrics(
      pango_context_get_metrics(context.get(), describe(measured).get(), nullptr));
  const int height =
      pango_font_metrics_get_ascent(metrics.get()) + pango_font_metrics_get_descent(metrics.get());
  return height / (PANGO_SCALE * kSize);
}

}  // namespace kestrel
