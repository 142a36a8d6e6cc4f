#pragma once

// Video discs: the volume, its titles, and titles as sources.

#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDIO.h>
#include <kestrel/LMDVDInternal.h>
#include <kestrel/LMDVDMedia.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSet.h>
#include <kestrel/LMDVDTitleSource.h>
