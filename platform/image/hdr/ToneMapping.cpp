#include <kestrel/ToneMapping.h>

#include <utility>

#include "platform/image/hdr/ColorTable.h"
#include "platform/image/plan/Planner.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

/// Another layer with its colours looked up.
class TableLayer final : public Layer {
 public:
  TableLayer(const Layer& input, const kernels::ColorCube& cube)
      : Layer(input.bounds()), input_(input), cube_(cube) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    input_.render(worker, rect, out);
    const bool isOpaque = input_.isOpaque(rect);
    for (int y = 0; y < rect.height(); ++y)
      kernels::lookUpColors(out.row(y), static_cast<size_t>(rect.width()), cube_, isOpaque);
  }
  bool isOpaque(const IntRect& rect) const override { return input_.isOpaque(rect); }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  const Layer& input_;
  kernels::ColorCube cube_;
};

struct TableNode final : FilterNode {
  static constexpr int kDepth = 15;  // of a table's colours

  TableNode(const NodePointer& picture, std::shared_ptr<const ColorTable> colors)
      : FilterNode(picture, integral(picture->extent)), table(std::move(colors)) {}

  const Layer* plan(Planner& planner, const IntRect& needed) const override {
    const Layer* source = planner.plan(*input, needed);
    planner.noteDepth(kDepth);
    return source ? planner.arena().make<TableLayer>(*source, table->cube()) : nullptr;
  }

  const std::shared_ptr<const ColorTable> table;
};

}  // namespace

std::shared_ptr<const Image> toneMapped(const std::shared_ptr<const Image>& picture,
                                        const HdrLight& light) {
  if (!picture) return nullptr;
  return Image::fromNode(std::make_shared<TableNode>(picture->node(), tableToSdr(light)));
}

std::shared_ptr<const Image> onHdr(const std::shared_ptr<const Image>& graphics,
                                   const HdrLight& light) {
  if (!graphics) return nullptr;
  return Image::fromNode(std::make_shared<TableNode>(graphics->node(), tableToHdr(light)));
}

}  // namespace kestrel
