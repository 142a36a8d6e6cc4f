#include "convert/run/Passes.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "convert/plan/EncoderParameters.h"
#include "convert/probe/EncoderTable.h"

extern "C" {
#include <libavutil/avutil.h>
}

namespace kestrel {

namespace {

constexpr double kCoarsestStep = 31;  // of the library's own encoders
constexpr double kMargin = 1.1;

}  // namespace

bool keepsPassLogInFiles(const ConversionPlan& plan) {
  const PassLog log = passLogOf(plan.videoEncoder);
  return log == PassLog::kStatsOption || log == PassLog::kX265Params;
}

void setPass(ConversionPlan& plan, int pass, const std::string& folder) {
  const std::string file = folder + "/passes";
  const PassLog log = passLogOf(plan.videoEncoder);
  if (log == PassLog::kX265Params) {
    addParameter(plan.videoOptions, plan.videoEncoder, "pass", std::to_string(pass));
    addParameter(plan.videoOptions, plan.videoEncoder, "stats", file);
    return;
  }
  plan.videoOptions["flags"] += fmt::format("+pass{}", pass);
  if (log == PassLog::kStatsOption) plan.videoOptions["stats"] = file;
}

int leastRate(const std::string& statistics, Rational rate) {
  double bits = 0;
  int pictures = 0;
  for (size_t place = 0; place < statistics.size(); ++place) {
    double step = 0;
    double own = 0;
    double predicted = 0;
    double vectors = 0;
    double others = 0;
    const int found =
        std::sscanf(statistics.c_str() + place,
                    " in:%*d out:%*d type:%*d q:%lf itex:%lf ptex:%lf mv:%lf misc:%lf", &step, &own,
                    &predicted, &vectors, &others);
    if (found == 5) {
      ++pictures;
      bits += vectors + others + step * (own + predicted + 1) / (kCoarsestStep * FF_QP2LAMBDA);
    }
    place = std::min(statistics.find(';', place), statistics.size());
  }
  if (pictures == 0) return 0;
  const double seconds = static_cast<double>(pictures) * rate.den / rate.num;
  return static_cast<int>(std::min(kMargin * bits / seconds, double{INT_MAX}));
}

SharedProgress::SharedProgress(const Events& events) : events_(events), shared_(events) {
  if (events.progress) shared_.progress = [this](const Progress& own) { tell(own); };
}

const Events& SharedProgress::next(double share) {
  time_ += share_ * last_.time;
  pictures_ += share_ * static_cast<double>(last_.pictures);
  last_ = {};
  share_ = share;
  return shared_;
}

void SharedProgress::tell(const Progress& own) {
  last_ = own;
  Progress whole = own;
  whole.time = time_ + share_ * own.time;
  whole.pictures = std::llround(pictures_ + share_ * static_cast<double>(own.pictures));
  events_.progress(whole);
}

}  // namespace kestrel
