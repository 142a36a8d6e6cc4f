#pragma once

#include <kestrel/convert/Batch.h>

#include <string>

/// What a conversion took and gave, for people: "0:10.000, 250 pictures in 3.2 s (3.1x), 1.2 MB, 45
/// % of the source". What is not known is left out.
std::string effortText(const kestrel::Effort& effort);

/// The bytes of the result in per cent of the source's: "45 %"; "" where one is not known.
std::string shareText(const kestrel::Effort& effort);
