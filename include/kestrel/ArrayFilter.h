#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// Runs a list of filters as a chain: each filter's output is the next one's input, and the output
/// of the last one is the output of the chain. An empty chain outputs its input image.
///
/// The members are stored under the key "filters", as a list, the image under `kCIInputImageKey`.
/// Both can be read and replaced from any thread. `outputImage` sets the members' input images, so
/// call it from one thread at a time.
class KESTREL_API ArrayFilter : public Filter {
 public:
  using Filters = std::vector<std::shared_ptr<Filter>>;

  static constexpr std::string_view kFiltersKey = "filters";

  ArrayFilter();
  ~ArrayFilter() override;

  /// Registers the filter with `FilterRegistry` as "ArrayFilter". Further calls do nothing.
  static void initialize();

  /// A new, empty chain, whatever the name: the constructor that the registry calls.
  static std::shared_ptr<Filter> filterWithName(const std::string& name);

  Filters filters() const;
  void setFilters(Filters filters);

  std::shared_ptr<const Image> inputImage() const;
  void setInputImage(std::shared_ptr<const Image> image);

  /// Sets the property for either of the two keys above; a value of the wrong type clears it.
  void setValue(FilterValue value, std::string_view key) override;
  FilterValue valueForKey(std::string_view key) const override;

  /// Null if a member has no output and the next one needs an input.
  std::shared_ptr<const Image> outputImage() const override;

  /// A chain of copies of the members. Members that cannot be copied are left out.
  std::shared_ptr<Filter> copy() const override;

 private:
  ArrayFilter(const ArrayFilter& other);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
