// kaloappnotify: raises or clears a notification in the administration centre.

#include <syslog.h>

#include <CLI/CLI.hpp>
#include <array>
#include <exception>
#include <iostream>
#include <string_view>

#include "host/core/log.h"
#include "host/notification/notification_store.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Sentence {
  std::string_view topic;
  std::string_view text;
};

// Callers name a topic; what people read is said here.
constexpr std::array kSentences = {
    Sentence{"KALO.WDX.PQMAdminCenter.Administration.Main",
             "A newer firmware is available for the mesh. See kalo-mesh check."},
};

std::string TextOf(std::string_view topic) {
  for (const Sentence& sentence : kSentences) {
    if (sentence.topic == topic) return std::string(sentence.text);
  }
  return "There is news about " + std::string(topic) + ".";
}

struct Options {
  std::string source;
  std::string topic;
  int count = 0;
  bool clear = false;
  std::string recipient;
};

void Run(const Options& options) {
  const kalo::NotificationStore store;
  if (options.clear) {
    store.Clear(options.source, options.topic, options.recipient);
    return;
  }
  kalo::Notification notification;
  notification.source = options.source;
  notification.topic = options.topic;
  notification.recipient = options.recipient;
  notification.count = options.count;
  notification.text = TextOf(options.topic);
  store.Raise(std::move(notification));
}

int Main(int argc, char** argv) {
  CLI::App app("Raises or clears a notification for administrators.", "kaloappnotify");
  Options options;
  app.add_option("-c", options.source, "who raises it")->required();
  app.add_option("-f", options.topic, "what it is about")->required();
  auto* count = app.add_option("-u", options.count, "raise it, with this count")
                    ->check(CLI::Range(1, 1000000));
  auto* clear = app.add_flag("-r", options.clear, "clear it")->excludes(count);
  app.add_option("RECIPIENT", options.recipient, "a user, or a group like @administrators")
      ->required();
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.");
  try {
    app.parse(argc, argv);
    if (count->empty() && clear->empty()) throw CLI::RequiredError("-u or -r");
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }
  Run(options);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  openlog("kaloappnotify", 0, LOG_DAEMON);
  try {
    return Main(argc, argv);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    std::cerr << "kaloappnotify: " << e.what() << "\n";
    return kFailed;
  }
}
