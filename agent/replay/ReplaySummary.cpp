#include <Replay/CaptureReplay.h>

#include <fmt/format.h>

#include <Text/Json.h>

namespace Agent {

namespace {

Mox::U64 countOf(const ReplaySummary& summary, SkipReason reason) {
  const auto found = summary.skipped.find(reason);
  return found == summary.skipped.end() ? 0 : found->second;
}

}  // namespace

std::string summaryText(const ReplaySummary& summary) {
  std::string text = fmt::format("{} frames read, {} with IGMP handed in, {} skipped\n",
                                 summary.frames, summary.igmp, summary.skippedInAll());
  for (const SkipReasonName& reason : skipReasons) {
    const Mox::U64 count = countOf(summary, reason.reason);
    if (count != 0) text += fmt::format("  {} {}\n", count, reason.text);
  }
  if (summary.refused + summary.changed != 0) {
    text += fmt::format("of those with IGMP, the intake refused {} and changed {}\n",
                        summary.refused, summary.changed);
  }
  if (summary.backwards != 0) {
    text +=
        fmt::format("earlier than a frame before them, time stood still: {}\n", summary.backwards);
  }
  if (summary.shortenedGaps != 0) {
    text += fmt::format("gaps between frames that were shortened (--max-gap): {}\n",
                        summary.shortenedGaps);
  }
  if (!summary.damage.empty()) {
    text += fmt::format("the file is damaged behind the last of them: {}\n", summary.damage);
  }
  return text;
}

std::string summaryJson(const ReplaySummary& summary, Mox::Seconds now) {
  JsonObject skipped;
  for (const SkipReasonName& reason : skipReasons) {
    skipped.number(reason.name, countOf(summary, reason.reason));
  }
  JsonObject json;
  json.times(now)
      .text("event", "summary")
      .number("frames", summary.frames)
      .number("igmp", summary.igmp)
      .number("refused", summary.refused)
      .number("changed", summary.changed)
      .object("skipped", skipped)
      .number("backwards", summary.backwards)
      .number("shortenedGaps", summary.shortenedGaps);
  if (summary.damage.empty()) {
    json.null("damage");
  } else {
    json.text("damage", summary.damage);
  }
  return json.line();
}

void printSummary(std::FILE* out, const ReplaySummary& summary, Mox::Seconds now, Format format) {
  const std::string text =
      format == Format::json ? summaryJson(summary, now) + "\n" : summaryText(summary);
  std::fputs(text.c_str(), out);
  std::fflush(out);
}

}  // namespace Agent
