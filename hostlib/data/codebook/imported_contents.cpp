#include "hostlib/data/codebook/imported_contents.h"

#include <memory>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"

namespace hostlib::data {

DatasetContents ContentsWithDataPath(const Dataset& dataset, const std::string& dataPath) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  if (!dataPath.empty()) json["path"] = dataPath;
  nlohmann::ordered_json fields = nlohmann::ordered_json::array();
  for (const auto& variable : dataset.Variables()) fields.push_back(RenderCodebookField(variable));
  json[kCodebookFieldsKey] = std::move(fields);
  if (!dataset.MultipleResponseSets().empty()) {
    json[kCodebookSetsKey] = RenderCodebookSets(dataset.MultipleResponseSets());
  }
  return {dataset, std::make_shared<Descriptor>(Descriptor{std::move(json)})};
}

DatasetContents ContentsFromDescriptorText(const std::string& text, const std::string& file) {
  auto descriptor = std::make_shared<Descriptor>(Descriptor{ParseDescriptor(text, file)});
  DescriptorContents contents = ReadDescriptor(descriptor->json, file);
  return {Dataset(std::move(contents.variables), std::move(contents.sets)), std::move(descriptor)};
}

}  // namespace hostlib::data
