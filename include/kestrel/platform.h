#pragma once

// What systems offer: files, processes, archives, queues, sound devices.

#include <kestrel/AtomicFile.h>
#include <kestrel/AudioDevice.h>
#include <kestrel/AudioGraph.h>
#include <kestrel/Bundle.h>
#include <kestrel/Coding.h>
#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/OperationQueue.h>
#include <kestrel/Pasteboard.h>
#include <kestrel/PropertyList.h>
#include <kestrel/Task.h>
