#pragma once

// What the jobs are made of: sources, movies, frames, effects, the file output.

#include <kestrel/ArrayFilter.h>
#include <kestrel/AudioTempo.h>
#include <kestrel/CodingBase.h>
#include <kestrel/EffectManager.h>
#include <kestrel/LMAudioGraph.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMFFMovieImageProvider.h>
#include <kestrel/LMFFVideoColor.h>
#include <kestrel/LMFIFODataBuffer.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/LMSubtitleSource.h>
#include <kestrel/LMWavSource.h>
#include <kestrel/LibMedia.h>
#include <kestrel/Log.h>
#include <kestrel/MemorySource.h>
#include <kestrel/MovieAudioTaskExtractWave.h>
#include <kestrel/MovieHelperTask.h>
#include <kestrel/MovieLook.h>
#include <kestrel/StreamFit.h>
#include <kestrel/VideoJoiner.h>
#include <kestrel/VideoJoinerItem.h>
#include <kestrel/Waveform.h>
