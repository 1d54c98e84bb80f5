#include "AttrPath.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <Mox/Entity.h>
#include <Mox/TypeInfo.h>
#include <fmt/format.h>

#include <Text/Listed.h>
#include "JsonLine.h"

namespace Agent {

using Mox::AttrInfo;
using Mox::CollectionInfo;
using Mox::EntityBase;
using Mox::Object;

namespace {

// One step of a path: "group", or "group[239.1.1.1]".
struct Step {
  std::string_view name;
  std::optional<std::string_view> key;
};

Step stepOf(std::string_view text) {
  const size_t open = text.find('[');
  if (open == std::string_view::npos) return {text, {}};
  if (!text.ends_with(']')) throw PathError(fmt::format("a ] is missing after \"{}\"", text));
  return {text.substr(0, open), text.substr(open + 1, text.size() - open - 2)};
}

// Removes the step before the next slash and returns it.
std::string_view takeStep(std::string_view& rest) {
  const size_t slash = rest.find('/');
  const std::string_view step = rest.substr(0, slash);
  rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  return step;
}

std::string nameOf(const Object& object) {
  const auto* entity = dynamic_cast<const EntityBase*>(&object);
  return entity == nullptr ? object.type().name : entity->fullName();
}

const EntityBase& entityOf(const Object& object) { return static_cast<const EntityBase&>(object); }

// A value with a name of its own, such as an address or an enumerator, is that text in JSON, too.
Json valueJson(const AttrInfo& attr, const Object& object) {
  return attr.named ? Json(attr.text(object)) : jsonOf(attr.get(object));
}

std::string unknownAttr(const Object& object, std::string_view name) {
  std::vector<std::string_view> known;
  for (const AttrInfo* attr : object.type().record()) {
    if (attr->call == nullptr) known.emplace_back(attr->name);
  }
  return fmt::format("{} has no attribute \"{}\": it has {}", object.type().name, name,
                     listed(known));
}

void addAttr(PathContent& content, const AttrInfo& attr, const Object& object) {
  Json& value = content.value[attr.name];
  Json& text = content.text[attr.name];
  if (attr.kind == Mox::AttrKind::collection) {
    const size_t size = object.type().collection(attr.name)->size(entityOf(object));
    value = size;
    text = fmt::format("{} {}", size, size == 1 ? "member" : "members");
  } else if (attr.held != nullptr) {
    const Object* held = attr.held(object);
    value = held == nullptr ? Json(nullptr) : Json(nameOf(*held));
    text = held == nullptr ? "" : nameOf(*held);
  } else {
    value = valueJson(attr, object);
    text = attr.text(object);
  }
}

PathContent contentOf(const Object& object) {
  PathContent content{Json::object(), Json::object()};
  for (const AttrInfo* attr : object.type().record()) {
    if (attr->call == nullptr) addAttr(content, *attr, object);
  }
  return content;
}

const Object& memberOf(const Object& object, const CollectionInfo& collection,
                       std::string_view text) {
  const std::optional<Mox::U32> key =
      collection.keyOf == nullptr ? std::nullopt : collection.keyOf(text);
  if (!key) throw PathError(fmt::format("{}: \"{}\" is no key", collection.name, text));
  if (collection.memberType == nullptr) {
    throw PathError(fmt::format("{} holds keys: nothing is below them", collection.name));
  }
  const EntityBase* member = collection.find(entityOf(object), *key);
  if (member == nullptr) {
    throw PathError(fmt::format("{} has no {}[{}]", nameOf(object), collection.name, text));
  }
  return *member;
}

// The object that an attribute with more of the path behind it leads to.
const Object& objectAt(const Object& object, const Step& step) {
  if (const CollectionInfo* collection = object.type().collection(step.name)) {
    if (!step.key) {
      throw PathError(fmt::format("{0} is a collection: name a member, {0}[KEY]", step.name));
    }
    return memberOf(object, *collection, *step.key);
  }
  const AttrInfo* attr = object.type().attr(step.name);
  if (attr == nullptr) throw PathError(unknownAttr(object, step.name));
  if (attr->call != nullptr) {
    throw PathError(fmt::format(
        "{} is an operation and has no value; `igmpq call --help` lists those that can be called",
        step.name));
  }
  if (attr->held == nullptr || step.key) {
    throw PathError(fmt::format("{} is a value: nothing is below it", step.name));
  }
  const Object* held = attr->held(object);
  if (held == nullptr) throw PathError(fmt::format("{} holds nothing now", step.name));
  return *held;
}

PathTarget targetAt(const Object& object, const Step& step) {
  const CollectionInfo* collection = object.type().collection(step.name);
  if (collection != nullptr && !step.key) return KeyWalk(&object, *collection, mostKeys);
  const AttrInfo* attr = object.type().attr(step.name);
  if (attr == nullptr || attr->get == nullptr || step.key) return contentOf(objectAt(object, step));
  return PathContent{valueJson(*attr, object), attr->text(object)};
}

// The root that the path begins with; its name is removed from the path.
const Object* takeRoot(const ObjectRoots& roots, std::string_view& path) {
  for (const auto& [name, object] : roots) {
    if (path == name || (path.starts_with(name) && path[name.size()] == '/')) {
      path.remove_prefix(std::min(path.size(), name.size() + 1));
      return object.get();
    }
  }
  return nullptr;
}

// The keys that can follow where a path has begun so, behind the name of the collection.
KeyWalk keysThatFollow(const Object& object, const CollectionInfo& collection,
                       std::string_view begun, const std::string& open) {
  KeyWalk::Fits fits;
  if (begun.size() > open.size()) {
    fits = [&collection, begunKey = std::string(begun.substr(open.size()))](Mox::U32 key) {
      return (collection.keyText(key) + "]").starts_with(begunKey);
    };
  }
  return {&object, collection, mostCompletions, std::move(fits)};
}

// Every step that can follow here.
void addSteps(std::vector<Completion::Part>& all, const Object& object, const std::string& before,
              std::string_view begun) {
  for (const AttrInfo* attr : object.type().record()) {
    if (attr->call != nullptr) continue;
    if (std::string_view(attr->name).starts_with(begun)) all.push_back({before + attr->name, {}});
    // There may be a million keys: they are read only where one of them can fit.
    const std::string open = attr->name + std::string("[");
    if (attr->kind != Mox::AttrKind::collection) continue;
    if (!begun.starts_with(open) && !open.starts_with(begun)) continue;
    const CollectionInfo& collection = *object.type().collection(attr->name);
    all.push_back({before + open, keysThatFollow(object, collection, begun, open)});
  }
}

}  // namespace

PathTarget readPath(const ObjectRoots& roots, std::string_view path) {
  if (path.empty()) {
    PathContent content{Json::array(), {}};
    for (const auto& [name, object] : roots) content.value.push_back(name);
    content.text = content.value;
    return content;
  }
  std::string_view rest = path;
  const Object* object = takeRoot(roots, rest);
  if (object == nullptr) {
    std::vector<std::string_view> known;
    for (const auto& [name, root] : roots) known.emplace_back(name);
    throw PathError(
        fmt::format("nothing is at \"{}\": paths begin with one of {}", path, listed(known)));
  }
  if (rest.empty()) return contentOf(*object);
  Step step = stepOf(takeStep(rest));
  for (; !rest.empty(); step = stepOf(takeStep(rest))) object = &objectAt(*object, step);
  return targetAt(*object, step);
}

Completion::Completion(const ObjectRoots& roots, std::string_view prefix) {
  for (const auto& [name, object] : roots) {
    if (std::string_view(name).starts_with(prefix)) parts_.push_back({name, {}});
  }
  std::string_view rest = prefix;
  const Object* object = takeRoot(roots, rest);
  if (object == nullptr) return;
  try {
    while (rest.find('/') != std::string_view::npos) {
      object = &objectAt(*object, stepOf(takeStep(rest)));
    }
  } catch (const PathError&) {
    return;
  }
  std::string before(prefix.substr(0, prefix.size() - rest.size()));
  if (!before.ends_with('/')) before += '/';
  addSteps(parts_, *object, before, rest);
}

bool Completion::step() {
  if (at_ == parts_.size() || paths_.size() == mostCompletions) return false;
  Part& part = parts_[at_];
  if (!part.keys) {
    paths_.push_back(part.text);
  } else if (part.keys->step()) {
    return true;
  } else {
    for (const Mox::U32 key : part.keys->keys()) {
      if (paths_.size() == mostCompletions) break;
      paths_.push_back(part.text + part.keys->collection().keyText(key) + "]");
    }
  }
  ++at_;
  return true;
}

}  // namespace Agent
