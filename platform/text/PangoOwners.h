#pragma once

// Owners of the text libraries' handles.

#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>

#include <memory>

namespace kestrel {

struct GObjectDeleter {
  void operator()(void* object) const { g_object_unref(object); }
};
struct FontDescriptionDeleter {
  void operator()(PangoFontDescription* font) const { pango_font_description_free(font); }
};
struct FontMetricsDeleter {
  void operator()(PangoFontMetrics* metrics) const { pango_font_metrics_unref(metrics); }
};
struct AttrListDeleter {
  void operator()(PangoAttrList* list) const { pango_attr_list_unref(list); }
};
struct LayoutIterDeleter {
  void operator()(PangoLayoutIter* iter) const { pango_layout_iter_free(iter); }
};
struct FontOptionsDeleter {
  void operator()(cairo_font_options_t* options) const { cairo_font_options_destroy(options); }
};
struct SurfaceDeleter {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct CairoDeleter {
  void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
struct FcPatternDeleter {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
struct FcObjectSetDeleter {
  void operator()(FcObjectSet* objects) const { FcObjectSetDestroy(objects); }
};
struct FcFontSetDeleter {
  void operator()(FcFontSet* fonts) const { FcFontSetDestroy(fonts); }
};

using FontMapPtr = std::unique_ptr<PangoFontMap, GObjectDeleter>;
using PangoContextPtr = std::unique_ptr<PangoContext, GObjectDeleter>;
using LayoutPtr = std::unique_ptr<PangoLayout, GObjectDeleter>;
using FontDescriptionPtr = std::unique_ptr<PangoFontDescription, FontDescriptionDeleter>;
using FontMetricsPtr = std::unique_ptr<PangoFontMetrics, FontMetricsDeleter>;
using AttrListPtr = std::unique_ptr<PangoAttrList, AttrListDeleter>;
using LayoutIterPtr = std::unique_ptr<PangoLayoutIter, LayoutIterDeleter>;
using FontOptionsPtr = std::unique_ptr<cairo_font_options_t, FontOptionsDeleter>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;
using CairoPtr = std::unique_ptr<cairo_t, CairoDeleter>;
using FcPatternPtr = std::unique_ptr<FcPattern, FcPatternDeleter>;
using FcObjectSetPtr = std::unique_ptr<FcObjectSet, FcObjectSetDeleter>;
using FcFontSetPtr = std::unique_ptr<FcFontSet, FcFontSetDeleter>;

}  // namespace kestrel
