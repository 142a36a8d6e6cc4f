#include <kestrel/MovieHelperTask.h>
#include <kestrel/Task.h>
#include "platform/process/HelperPath.h"

namespace kestrel {

std::shared_ptr<Task> launchMovieHelperTask(const std::string& command,
                                            const std::vector<std::string>& arguments) {
  auto task = std::make_shared<Task>();
  task->setLaunchPath(helperPath("QTMovieHelperTask"));
  std::vector<std::string> words{command};
  words.insert(words.end(), arguments.begin(), arguments.end());
  task->setArguments(std::move(words));
  task->launch();
  return task;
}

}  // namespace kestrel
