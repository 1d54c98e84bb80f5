#include "Story.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace Sim {

namespace {

struct VerbName {
  Line::Verb verb;
  const char* name;
};
constexpr std::array verbNames{
    VerbName{Line::want, "want"},       VerbName{Line::hostCrash, "hostCrash"},
    VerbName{Line::crash, "crash"},     VerbName{Line::start, "start"},
    VerbName{Line::kill, "kill"},       VerbName{Line::down, "down"},
    VerbName{Line::up, "up"},           VerbName{Line::stop, "stop"},
    VerbName{Line::resume, "resume"},   VerbName{Line::set, "set"},
    VerbName{Line::address, "address"}, VerbName{Line::link, "link"},
    VerbName{Line::cut, "cut"}};

std::string number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.12g", v);
  return text;
}

std::string sourcesText(Mask sources) {
  std::string text;
  for (unsigned s = 0; s < sourcesMost; ++s) {
    if ((sources >> s & 1U) != 0) text += (text.empty() ? "s" : ",s") + std::to_string(s);
  }
  return text;
}

std::string channelsText(Mask mask) {
  if (mask == 0) return "none";
  if ((mask & rest) == 0) return sourcesText(mask);
  const Mask excluded = namedSources & ~mask;
  return excluded == 0 ? "all" : "all-" + sourcesText(excluded);
}

Mask channelsOf(const std::string& text) {
  Mask sources = 0;
  for (unsigned s = 0; s < sourcesMost; ++s) {
    if (text.find("s" + std::to_string(s)) != std::string::npos) sources |= 1U << s;
  }
  return text.starts_with("all") ? wholeGroup & ~sources : sources;
}

// The number behind a letter: r2, h0, g1.
unsigned numbered(const std::string& word, char letter) {
  if (word.size() < 2 || word[0] != letter) throw StoryError("no " + std::string(1, letter));
  return static_cast<unsigned>(std::stoul(word.substr(1)));
}

Ilvo::IpAddr addressOf(const std::string& text) {
  const auto found = Ilvo::IpAddr::parse(text);
  if (!found) throw StoryError("no address: " + text);
  return *found;
}

void readSettings(std::istringstream& in, Settings& settings) {
  for (std::string word; in >> word;) {
    const size_t at = word.find('=');
    double* setting = at == std::string::npos ? nullptr : settings.find(word.substr(0, at));
    if (setting == nullptr) throw StoryError("no setting: " + word);
    *setting = std::stod(word.substr(at + 1));
  }
}

void readArguments(std::istringstream& in, Line& line) {
  std::string first;
  in >> first;
  switch (line.verb) {
    case Line::want: {
      std::string group;
      std::string channels;
      in >> group >> channels;
      line.node = numbered(first, 'h');
      line.group = numbered(group, 'g');
      line.channels = channelsOf(channels);
      return;
    }
    case Line::hostCrash: line.node = numbered(first, 'h'); return;
    case Line::address: {
      std::string address;
      in >> address;
      line.node = numbered(first, 'r');
      line.addr = addressOf(address);
      return;
    }
    case Line::set:
      line.node = first == "all" ? Line::everyRouter : numbered(first, 'r');
      in >> line.name >> line.value;
      if (Settings().find(line.name) == nullptr) throw StoryError("no setting: " + line.name);
      return;
    case Line::link:
      line.quality.loss = std::stod(first);
      in >> line.quality.duplicate >> line.quality.leastDelay >> line.quality.mostDelay;
      return;
    case Line::cut: line.name = first; return;
    default: line.node = numbered(first, 'r');
  }
}

Line lineOf(const std::string& time, std::istringstream& in) {
  std::string verb;
  in >> verb;
  const auto found = std::ranges::find_if(verbNames, [&](const auto& v) { return verb == v.name; });
  if (found == verbNames.end()) throw StoryError("no such event: " + verb);
  Line line{.time = std::stod(time), .verb = found->verb};
  readArguments(in, line);
  return line;
}

void readLine(const std::string& text, Story& story) {
  std::istringstream in(text);
  std::string first;
  if (!(in >> first) || first[0] == '#') return;
  if (first == "seed") {
    in >> story.seed;
  } else if (first == "router") {
    std::string address;
    in >> address;
    Story::RouterSetup router{.address = addressOf(address)};
    readSettings(in, router.settings);
    story.routers.push_back(router);
  } else if (first == "host") {
    unsigned version = 3;
    in >> version;
    story.hosts.push_back(version);
  } else {
    story.lines.push_back(lineOf(first, in));
  }
}

}  // namespace

std::string textOf(const Line& line) {
  const auto* verb =
      std::ranges::find_if(verbNames, [&](const auto& v) { return line.verb == v.verb; });
  const std::string text = number(line.time) + " " + verb->name + " ";
  const std::string host = "h" + std::to_string(line.node);
  const std::string router =
      line.node == Line::everyRouter ? "all" : "r" + std::to_string(line.node);
  switch (line.verb) {
    case Line::want:
      return text + host + " g" + std::to_string(line.group) + " " + channelsText(line.channels);
    case Line::hostCrash: return text + host;
    case Line::address: return text + router + " " + line.addr.stringValue();
    case Line::set: return text + router + " " + line.name + " " + number(line.value);
    case Line::link:
      return text + number(line.quality.loss) + " " + number(line.quality.duplicate) + " " +
             number(line.quality.leastDelay) + " " + number(line.quality.mostDelay);
    case Line::cut: return text + line.name;
    default: return text + router;
  }
}

std::string textOf(const Story& story) {
  std::string text = "seed " + std::to_string(story.seed) + "\n";
  for (const Story::RouterSetup& router : story.routers) {
    text += "router " + router.address.stringValue();
    for (const SettingName& each : settingNames) {
      const double value = router.settings.*each.member;
      if (value != Settings().*each.member)
        text += std::string(" ") + each.name + "=" + number(value);
    }
    text += "\n";
  }
  for (const unsigned version : story.hosts) text += "host " + std::to_string(version) + "\n";
  for (const Line& line : story.lines) text += textOf(line) + "\n";
  return text;
}

Story storyOf(const std::string& text) {
  Story story;
  std::istringstream in(text);
  unsigned number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    try {
      readLine(line, story);
    } catch (const std::exception& error) {
      throw StoryError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return story;
}

}  // namespace Sim
