#pragma once

#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/EffectSheet.h>
#include <kestrel/convert/Sprites.h>
#include <kestrel/convert/Thumbnail.h>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range.
void require(const ContactSheet::Layout& layout);
void require(const ThumbnailSettings& settings);
void require(const ContactSheetSettings& settings);
void require(const SpritesSettings& settings);
void require(const EffectSheetSettings& settings);

}  // namespace kestrel
