#pragma once

// Pictures: lazy images, filters, the renderer, bitmaps, files, metrics, text.

#include <kestrel/AttributedString.h>
#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Filter.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/ParagraphStyle.h>
#include <kestrel/PlaneMetrics.h>
#include <kestrel/Scaler.h>
#include <kestrel/Ssimulacra2.h>
#include <kestrel/TextEncoding.h>
#include <kestrel/ToneMapping.h>
#include <kestrel/Vector.h>
#include <kestrel/YUVPicture.h>
