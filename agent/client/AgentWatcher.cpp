#include <Client/AgentWatcher.h>

#include <stdexcept>
#include <utility>

#include <Client/AttrLogClient.h>
#include <Mox/ActivityClock.h>

namespace Agent {

AgentWatcher::AgentWatcher(EventLoop& loop, Options options, EventSink& sink)
    : options_(std::move(options)),
      sink_(sink),
      copy_(loop.io(), options_.path,
            {.onCurrent = [this] { handleCurrent(); },
             .onInput = [this] { handleInput(); },
             .onAnswer = [this](Mox::U32) { handleAnswer(); },
             .onEnded = [this](AttrLogCopy::End end,
                               const std::string& why) { handleEnded(end, why); }}),
      watcher_(copy_.interfaces(),
               {.interfaces = options_.interfaces, .fromTheBeginning = options_.fromTheBeginning},
               sink),
      retryTimer_(loop.wheel(), *this),
      counterTimer_(loop.wheel(), *this) {}

void AgentWatcher::start() {
  since_ = Mox::now();
  if (options_.waits) {
    handleRetryTimer();
  } else {
    copy_.connect();
  }
  if (options_.counters) counterTimer_.timeMinIs(Mox::now() + counterInterval);
}

void AgentWatcher::handleCurrent() {
  if (!wasCurrent_) {
    for (const std::string& name : options_.interfaces) interfaceOf(copy_.interfaces(), name);
  } else {
    sink_.event({.time = Mox::now(), .kind = Event::agentBack});
  }
  wasCurrent_ = isCurrent_ = true;
  since_ = Mox::now();
  absence_.clear();
  watcher_.flush();
}

void AgentWatcher::handleInput() {
  if (!isCurrent_ || isAsked_ || !watcher_.changed()) return;
  isAsked_ = true;
  copy_.ask(1);
}

void AgentWatcher::handleAnswer() {
  isAsked_ = false;
  watcher_.flush();
}

void AgentWatcher::handleEnded(AttrLogCopy::End end, const std::string& why) {
  if (!options_.waits && (end == AttrLogCopy::End::protocolError || !wasCurrent_)) {
    throw std::runtime_error(why);
  }
  isAsked_ = false;
  absence_ = why;
  if (std::exchange(isCurrent_, false)) {
    since_ = Mox::now();
    Event event{.time = Mox::now(), .kind = Event::agentLost};
    event.text = why + "; waiting for it to come back";
    sink_.event(event);
  }
  retryTimer_.timeMinIs(Mox::now() + retryInterval);
}

void AgentWatcher::handleRetryTimer() {
  try {
    copy_.connect();
  } catch (const ConnectError& error) {
    absence_ = error.what();
    retryTimer_.timeMinIs(Mox::now() + retryInterval);
  }
}

void AgentWatcher::handleCounterTimer() {
  counterTimer_.timeMinIs(Mox::now() + counterInterval);
  if (isCurrent_) watcher_.flushCounters();
}

}  // namespace Agent
