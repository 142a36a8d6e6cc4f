#pragma once

// Whole jobs: facts about inputs, conversions, joins, pictures of a time, playing.

#include <kestrel/convert/Batch.h>
#include <kestrel/convert/BestPicture.h>
#include <kestrel/convert/Compare.h>
#include <kestrel/convert/Compose.h>
#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Disc.h>
#include <kestrel/convert/DiscInfo.h>
#include <kestrel/convert/EffectSheet.h>
#include <kestrel/convert/Encoders.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Join.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/OptionInfo.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureBox.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Player.h>
#include <kestrel/convert/Presets.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/Scanning.h>
#include <kestrel/convert/Scenes.h>
#include <kestrel/convert/Sprites.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Thumbnail.h>
#include <kestrel/convert/TrackChoice.h>
#include <kestrel/convert/Values.h>
#include <kestrel/convert/WaveformFile.h>
