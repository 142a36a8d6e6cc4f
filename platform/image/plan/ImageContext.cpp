#include <kestrel/ImageContext.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/layers/OutputPass.h"
#include "platform/image/plan/Planner.h"
#include "platform/image/plan/WorkerPool.h"

namespace kestrel {

namespace {

constexpr int kLargestSide = 32768;

/// The memory that one picture at a time is made with.
struct Workspace {
  Arena plan;
  TapsStore taps;
  std::vector<const Pass*> passes;
  std::vector<Worker> workers;
};

/// The pixels of `bounds`; empty where no picture of them can be made.
IntRect pictureOf(const Rect& bounds) {
  if (isEmpty(bounds) || isInfinite(bounds)) return {};
  const Rect whole = integral(bounds);
  const IntRect pixels = pixelsOf(bounds);
  const bool isFit =
      rectOf(pixels) == whole && pixels.width() <= kLargestSide && pixels.height() <= kLargestSide;
  return isFit ? pixels : IntRect{};
}

int threadsOfMachine() {
  const auto threads = static_cast<int>(std::thread::hardware_concurrency());
  return std::clamp(threads, 1, WorkerPool::kMostThreads);
}

}  // namespace

struct ImageContext::State {
  /// Runs the plan of `image`, at its end the passes that `addOutput` makes of its last layer.
  template <typename AddOutput>
  bool render(const Image* image, const IntRect& pixels, const AddOutput& addOutput) {
    std::unique_ptr<Workspace> workspace = take();
    bool isDone = true;
    try {
      const int count = threads > 0 ? threads.load() : threadsOfMachine();
      if (workspace->workers.size() < static_cast<size_t>(count))
        workspace->workers.resize(static_cast<size_t>(count));
      workspace->plan.reset();
      workspace->passes.clear();
      workspace->taps.beginPlan();
      Planner planner(workspace->plan, workspace->taps, workspace->passes);
      const Layer* layer = image ? planner.plan(*image->node(), pixels) : nullptr;
      addOutput({workspace->plan, workspace->taps, workspace->passes, planner.depth(),
                 planner.hasGradients()},
                layer);
      for (const Pass* pass : workspace->passes)
        isDone = isDone && runPass(*pass, *workspace, count);
    } catch (const std::bad_alloc&) {
      isDone = false;
    }
    give(std::move(workspace));
    return isDone;
  }

  static bool runPass(const Pass& pass, Workspace& workspace, int count) {
    std::atomic<bool> isDone = true;
    WorkerPool::shared().run(pass.tasks(), count, [&](int task, int number) {
      Worker& worker = workspace.workers[static_cast<size_t>(number)];
      const Arena::Mark mark = worker.memory.mark();
      try {
        pass.run(worker, task);
      } catch (const std::bad_alloc&) {
        isDone = false;
      }
      worker.memory.rewind(mark);
    });
    return isDone;
  }

  std::unique_ptr<Workspace> take() {
    const std::lock_guard lock(mutex);
    if (spare.empty()) return std::make_unique<Workspace>();
    std::unique_ptr<Workspace> workspace = std::move(spare.back());
    spare.pop_back();
    return workspace;
  }

  void give(std::unique_ptr<Workspace> workspace) {
    const std::lock_guard lock(mutex);
    spare.push_back(std::move(workspace));
  }

  std::atomic<int> threads = 0;
  std::mutex mutex;
  std::vector<std::unique_ptr<Workspace>> spare;
};

ImageContext::ImageContext() : state_(std::make_unique<State>()) {}

ImageContext::~ImageContext() = default;

void ImageContext::setThreads(int threads) {
  state_->threads = std::clamp(threads, 0, WorkerPool::kMostThreads);
}

int ImageContext::threads() const { return state_->threads; }

bool ImageContext::render(const std::shared_ptr<const Image>& image, const Rect& bounds,
                          uint8_t* pixels, int bytesPerRow) const {
  const IntRect picture = pictureOf(bounds);
  if (picture.isEmpty() || !pixels || bytesPerRow < picture.width() * 4) return false;
  return state_->render(image.get(), picture, [&](const PassMaker& maker, const Layer* layer) {
    maker.passes.push_back(makeRgbaPass(maker, layer, picture, pixels, bytesPerRow));
  });
}

bool ImageContext::render(const std::shared_ptr<const Image>& image, const Rect& bounds,
                          const YUVTarget& target) const {
  const IntRect picture = pictureOf(bounds);
  if (picture.isEmpty() || !isWritable(target) || picture.width() != target.format.width ||
      picture.height() != target.format.height)
    return false;
  return state_->render(image.get(), picture, [&](const PassMaker& maker, const Layer* layer) {
    addPlanesPasses(maker, layer, picture, target);
  });
}

std::shared_ptr<const BitmapImage> ImageContext::bitmapImage(
    const std::shared_ptr<const Image>& image, const Rect& rect) const {
  const IntRect picture = pictureOf(rect);
  if (picture.isEmpty()) return nullptr;
  const int bytesPerRow = picture.width() * 4;
  std::shared_ptr<uint8_t[]> memory;
  try {
    memory = std::make_shared_for_overwrite<uint8_t[]>(static_cast<size_t>(bytesPerRow) *
                                                       static_cast<size_t>(picture.height()));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (!render(image, rect, memory.get(), bytesPerRow)) return nullptr;
  return BitmapImage::sharing(std::move(memory), picture.width(), picture.height(), bytesPerRow);
}

}  // namespace kestrel
