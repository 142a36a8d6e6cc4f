#pragma once

#include <array>

namespace kestrel::test {

using Colour = std::array<double, 3>;

/// HDR pictures in SDR by the published formulas, one colour at a time and in double precision:
/// BT.2100's curves, HLG's system gamma of 1.2 for 1000 candelas per square metre, BT.2390's
/// compression of intensity in ICtCp to 203, and chroma made less until BT.709 holds it: what is
/// beyond 0.7 of the room there, by x / (1 + x) of what is left. The result is for BT.1886.
///
/// `samples`: red, green and blue of BT.2020, 0 to 1. `peak`: of PQ, candelas per square metre.
Colour sdrOfPq(const Colour& samples, double peak);
Colour sdrOfHlg(const Colour& samples);

/// The sample of a light of PQ and HLG, of a grey.
double pqSample(double light);
double hlgSample(double light);

/// CIEDE2000 (Sharma, Wu, Dalal: The CIEDE2000 color-difference formula, 2005) of two colours in
/// L*, a*, b*.
double ciede2000(const Colour& a, const Colour& b);

/// L*, a*, b* of a colour of SDR as a display of BT.1886 and BT.709 shows it, under D65.
Colour labOf(const Colour& sdr);

}  // namespace kestrel::test
