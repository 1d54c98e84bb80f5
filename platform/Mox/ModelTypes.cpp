#include <Mox/ModelTypes.h>

#include <algorithm>
#include <set>

#include <Mox/Errors.h>
#include <Mox/Trace.h>

namespace Mox {

namespace {

std::vector<const ModelTypes*>& models() {
  static auto* all = new std::vector<const ModelTypes*>;  // libraries unload after every static
  return *all;
}

}  // namespace

ModelTypes::ModelTypes(const char* model, std::initializer_list<TypeRecord> records)
    : model_(model), records_(records) {
  std::set<std::string_view> own;
  for (const TypeRecord& record : records_) {
    if (typeNamed(record.name) != nullptr || !own.insert(record.name).second) {
      throw InternalError(std::string(record.name) + " is registered twice");
    }
  }
  models().push_back(this);
}

ModelTypes::~ModelTypes() {
  std::erase(models(), this);
  brevlog().clear();
}

std::vector<const ModelTypes*> loadedModels() { return models(); }

const TypeRecord* typeNamed(std::string_view name) {
  for (const ModelTypes* model : models()) {
    const auto found = std::ranges::find_if(
        model->records(), [&](const TypeRecord& record) { return record.name == name; });
    if (found != model->records().end()) return &*found;
  }
  return nullptr;
}

}  // namespace Mox
