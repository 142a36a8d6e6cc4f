#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// Runs a list of filters one after another: the input image goes into the first, what each makes
/// of it into the next, and what the last one makes is the output.
///
/// The filters stand under the key "filters", a list, and the image under `kCIInputImageKey`; both
/// may be read and replaced from any thread. Running the chain sets the input images of the
/// members, so one thread at a time runs it. A chain without members outputs its input image.
class KESTREL_API ArrayFilter : public Filter {
 public:
  using Filters = std::vector<std::shared_ptr<Filter>>;

  static constexpr std::string_view kFiltersKey = "filters";

  ArrayFilter();
  ~ArrayFilter() override;

  /// Makes the filter known to `FilterRegistry` as "ArrayFilter", once however often it is called.
  static void initialize();

  /// A new one without filters, whatever the name: what the registry calls.
  static std::shared_ptr<Filter> filterWithName(const std::string& name);

  Filters filters() const;
  void setFilters(Filters filters);

  std::shared_ptr<const Image> inputImage() const;
  void setInputImage(std::shared_ptr<const Image> image);

  /// For the two keys above the properties; none, or a value of another kind, empties them.
  void setValue(FilterValue value, std::string_view key) override;
  FilterValue valueForKey(std::string_view key) const override;

  /// Null once a member outputs nothing and the next one needs an input.
  std::shared_ptr<const Image> outputImage() const override;

  /// A chain of copies of the members; a member without a copy is left out.
  std::shared_ptr<Filter> copy() const override;

 private:
  ArrayFilter(const ArrayFilter& other);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
