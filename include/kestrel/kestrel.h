#pragma once

// Every public header. Start here:
//
// A program that converts, joins, plays or looks at movies begins with the first of these and needs
// a later one only where the first leaves off; each says what it is for, none needs one before it.
//
//   convert.h   Whole jobs: facts about inputs, conversions, joins, pictures of a time, playing.
//   engine.h    What the jobs are made of: sources, movies, frames, effects, the file output.
//   disc.h      Video discs: the volume, its titles, and titles as sources.
//   image.h     Pictures: lazy images, filters, the renderer, bitmaps, files, metrics, text.
//   platform.h  What systems offer: files, processes, archives, queues, sound devices.

#include <kestrel/convert.h>
#include <kestrel/disc.h>
#include <kestrel/engine.h>
#include <kestrel/image.h>
#include <kestrel/platform.h>
