// Has the library start a helper program that does not lie beside this one.
#include <kestrel/MovieHelperTask.h>
#include <kestrel/Task.h>

int main() {
  const auto task = kestrel::launchMovieHelperTask("nonsense", {});
  task->waitUntilExit();
  return task->terminationStatus() == 2 ? 0 : 1;
}
