#include "tools/terminal/Worker.h"

#include <kestrel/LMFFMovie.h>

#include <csignal>
#include <exception>

#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"

int runWorker(const std::function<int()>& work) {
  std::signal(SIGPIPE, SIG_IGN);
  kestrel::LMFFMovie::initialize();
  try {
    watchForInterrupt();
    return work();
  } catch (const Failure& failure) {
    say(failure.what());
    return statusOf(failure);
  } catch (const std::exception& error) {
    say(error.what());
    return kFailed;
  }
}
