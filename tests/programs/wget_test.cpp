#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "box/setup/certificates.h"
#include "host/core/file_lock.h"
#include "host/core/spawn.h"
#include "host/core/strict_json.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "programs/wget/fetch_to_file.h"
#include "services/feedd/feed_server.h"
#include "tests/host/update/feed/example_list.h"
#include "tests/host/update/feed/test_feed.h"
#include "tests/host/update/temporary_folder.h"
#include "tests/support/log_socket.h"
#include "tests/support/script_server.h"
#include "tests/support/wait.h"

namespace kalo::fetch {
namespace {

namespace fs = std::filesystem;
using test::Contents;
using test::ScriptClient;
using test::ScriptServer;

class Wget : public testing::Test {
 protected:
  // @return the program's exit status.
  [[nodiscard]] static int Run(const std::vector<std::string>& words) {
    std::vector<std::string> argv = {KALO_WGET};
    argv.insert(argv.end(), words.begin(), words.end());
    return WaitForExit(Spawn(argv));
  }
  [[nodiscard]] int Get(const std::string& url) const {
    return Run({"--timeout=5", "--tries=1", "-O", path_, url});
  }
  [[nodiscard]] int GetFrom(const ScriptServer::Script& script) const {
    const ScriptServer server(script);
    return Get(server.Url() + "/x");
  }

  test::TemporaryFolder folder_;
  std::string path_ = folder_.Path("document");
};

TEST_F(Wget, StoresTheWholeAnswerWhateverItIs) {
  const std::string garbage("\x01<html>\0{", 9);
  EXPECT_EQ(
      GetFrom([&](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", garbage)); }),
      kOk);
  EXPECT_EQ(Contents(path_), garbage);
  EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0600));
}

TEST_F(Wget, LeavesAnEmptyFileAfterAnythingElse) {
  (void)folder_.Write("document", "old");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) { c.Send(ScriptServer::Answer("404 No", "page")); }),
            kRefused);
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_EQ(Contents(path_), "");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) {
              c.Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf");
            }),
            kNetwork);
  EXPECT_EQ(Contents(path_), "");
  EXPECT_EQ(GetFrom([](const ScriptClient& c) {
              c.Send("HTTP/1.1 200 OK\r\nContent-Length: 1048577\r\n\r\nx");
              c.WaitForEnd();
            }),
            kNetwork);
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, MoreThanAMebibyteIsNotTakenAnnouncedOrNot) {
  EXPECT_EQ(GetFrom([](const ScriptClient& c) {
              c.Send("HTTP/1.1 200 OK\r\n\r\n" + std::string((std::size_t{1} << 20) + 1, 'x'));
            }),
            kNetwork);
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, EveryOtherStatusIsARefusal) {
  for (const char* status : {"204 No", "403 No", "500 Bad", "503 Busy"}) {
    EXPECT_EQ(GetFrom([&](const ScriptClient& c) { c.Send(ScriptServer::Answer(status, "page")); }),
              kRefused)
        << status;
    EXPECT_EQ(Contents(path_), "") << status;
  }
}

TEST_F(Wget, FollowsNoRedirectToPlainHttp) {
  const ScriptServer target(
      [](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", "secret")); });
  EXPECT_NE(GetFrom([&target](const ScriptClient& c) {
              c.Send(ScriptServer::Answer("302 Found", "", "Location: " + target.Url() + "/\r\n"));
            }),
            kOk);
  EXPECT_TRUE(target.Requests().empty());
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, EndsWithinTheTimeoutWhenTheServerHangs) {
  const ScriptServer server([](const ScriptClient& c) { c.WaitForEnd(); });
  EXPECT_EQ(Run({"--timeout=1", "--tries=1", "-O", path_, server.Url()}), kNetwork);
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, EndsWithinTheTimeoutWhenTheServerDrips) {
  const ScriptServer server([](const ScriptClient& c) {
    c.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
    (void)test::WaitFor([&] { return !c.Send("x"); }, std::chrono::seconds(50));
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Run({"--timeout=1", "--tries=1", "-O", path_, server.Url()}), kNetwork);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, test::kLongWait);
}

// The C library asks a name server that does not answer for as long as its configuration says.
TEST_F(Wget, EndsWithinTheTimeoutWhenTheNameServerHangs) {
  std::ofstream("/etc/resolv.conf") << "nameserver 127.0.0.1\noptions timeout:30 attempts:1\n";
  const UniqueFd server(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(53);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(server.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Run({"--timeout=1", "--tries=1", "-O", path_, "http://update.kalo.example/"}),
            kNetwork);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, test::kLongWait);
  fs::remove("/etc/resolv.conf");
}

// Something always comes before the stall limit has passed: only the whole limit ends that.
TEST_F(Wget, EndsWithinTheWholeLimitWhenTheServerDrips) {
  HttpsLimits limits;
  limits.stall = std::chrono::milliseconds(500);
  limits.whole = std::chrono::milliseconds(1500);
  const ScriptServer server([](const ScriptClient& c) {
    c.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
    (void)test::WaitFor([&] { return !c.Send("x"); });
  });
  std::string error;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(FetchToFile(server.Url(), path_, limits, error), kNetwork);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, limits.whole) << "it was no drip";
  EXPECT_LT(std::chrono::steady_clock::now() - begin, test::kLongWait / 2);
  EXPECT_TRUE(error.starts_with(server.Url() + ": ")) << error;
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(Wget, SaysWhatHappenedInOneLineAndInTheSystemLog) {
  test::LogSocket log;
  const std::string said = folder_.Path("said");
  const UniqueFd out(open(said.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const SpawnOptions options = {.stderr_fd = out.Get()};
  const std::string url = "http://127.0.0.1:1/list";
  EXPECT_EQ(WaitForExit(Spawn({KALO_WGET, "--timeout=5", "--tries=1", "-O", path_, url}, options)),
            kNetwork);
  const std::string line = Contents(said);
  EXPECT_TRUE(line.starts_with("wget: " + url + ": ")) << line;
  EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
  EXPECT_TRUE(log.WaitFor(line.substr(0, line.size() - 1))) << log.All();
}

/// An empty file in the place of the library while this lives.
class WithoutTransferLibrary {
 public:
  explicit WithoutTransferLibrary(const std::string& empty) {
    void* library = dlopen(KALO_CURL_SONAME, RTLD_NOW | RTLD_LOCAL);
    link_map* loaded = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, static_cast<void*>(&loaded)) != 0) {
      throw std::runtime_error("no library to take away");
    }
    path_ = fs::canonical(loaded->l_name);
    if (mount(empty.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      throw std::runtime_error("cannot cover " + path_);
    }
  }
  WithoutTransferLibrary(const WithoutTransferLibrary&) = delete;
  WithoutTransferLibrary& operator=(const WithoutTransferLibrary&) = delete;
  ~WithoutTransferLibrary() { umount(path_.c_str()); }

 private:
  std::string path_;
};

// It is no part of the program, so a package may lack it.
TEST_F(Wget, SaysThatTheTransferLibraryIsMissing) {
  const std::string said = folder_.Path("said");
  const UniqueFd out(open(said.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const WithoutTransferLibrary gone(folder_.Write("empty", ""));
  EXPECT_EQ(WaitForExit(Spawn({KALO_WGET, "--timeout=5", "--tries=1", "-O", path_, "http://x/"},
                              {.stderr_fd = out.Get()})),
            kNetwork);
  const std::string line = Contents(said);
  EXPECT_TRUE(line.starts_with("wget: http://x/: the transfer library cannot be loaded: ")) << line;
  EXPECT_NE(line.find(KALO_CURL_SONAME), std::string::npos) << line;
  EXPECT_EQ(Contents(path_), "");
}

// Over TLS, against the feed's own server.
class WgetTrust : public Wget {
 protected:
  WgetTrust() { (void)folder_.Write("feed/v1/x.json", "list"); }
  WgetTrust(const WgetTrust&) = delete;
  WgetTrust& operator=(const WgetTrust&) = delete;
  ~WgetTrust() override { fs::remove(KALO::paths::kFeedAuthorities); }

  [[nodiscard]] int GetOverTls(const std::string& address) const {
    const box::Credential credential = authority_.Issue({"feed", {}, {address}});
    const feedd::FeedServer server(
        {folder_.Path("feed"), "127.0.0.1", 0, credential.certificate, credential.key});
    return Get(server.Url() + "/v1/x.json");
  }
  static void Trust(const box::CertificateAuthority& authority) {
    const fs::path path = KALO::paths::kFeedAuthorities;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << authority.Certificate();
  }

  box::CertificateAuthority authority_{"Maker"};
};

TEST_F(WgetTrust, TakesWhatTheAuthorityVouchesFor) {
  Trust(authority_);
  EXPECT_EQ(GetOverTls("127.0.0.1"), kOk);
  EXPECT_EQ(Contents(path_), "list");
}

TEST_F(WgetTrust, AnotherAuthorityAndAnotherNameHaveAStatusOfTheirOwn) {
  Trust(box::CertificateAuthority("Somebody"));
  EXPECT_EQ(GetOverTls("127.0.0.1"), kUntrusted);
  EXPECT_EQ(Contents(path_), "");
  Trust(authority_);
  EXPECT_EQ(GetOverTls("127.0.0.2"), kUntrusted);
  EXPECT_EQ(Contents(path_), "");
}

// What the version-2 document alone can make a router do: its server is the attacker's.
class WgetFeed : public Wget {
 protected:
  WgetFeed() {
    fs::remove(KALO::paths::kConfiguration);
    SetRouter("1237");
    test::TestFeed::Configure(server_.Url());
  }
  WgetFeed(const WgetFeed&) = delete;
  WgetFeed& operator=(const WgetFeed&) = delete;
  ~WgetFeed() override { fs::remove(KALO::paths::kConfiguration); }

  static void SetRouter(const char* rolling_group) {
    ASSERT_EQ(KLIBCINFOSetKeyValue("rolling_group_id", rolling_group), 1);
  }
  static std::string Item(const std::string& title, int build, const std::string& phase = "",
                          const std::string& model = "kalo_m1") {
    return R"({"title":")" + title + R"(","BuildNum":)" + std::to_string(build) + R"(,"phase":")" +
           phase + R"(","model":")" + model + R"("})";
  }
  static std::string Document(const std::string& items) {
    return R"({"channel":{"item":[)" + items + "]}}";
  }
  [[nodiscard]] int Ask(const std::string& document, const std::string& query = kQuery) {
    document_ = document;
    return Get(server_.Url() + "/autoupdate/v2/getList?" + query);
  }
  // @return the titles that the check finds in the fetched file; "-" if it finds no document.
  [[nodiscard]] std::string Offered(const std::string& items, const std::string& query = kQuery) {
    EXPECT_EQ(Ask(Document(items), query), kOk) << items;
    const auto root = ParseStrictJson(Contents(path_));
    if (!root) return "-";
    std::string titles;
    for (const Json::Value& item : (*root)["channel"]["item"]) {
      titles += item["title"].asString() + item["phase"].asString() + ";";
    }
    return titles;
  }

  static constexpr const char* kQuery =
      "unique=kalo_m1&build_num=76000&include_beta=true&group_id=7";

  test::LogSocket log_;
  test::TestFeed feed_;
  std::string document_;
  ScriptServer server_{[this](const ScriptClient& c) {
    const std::string path = c.Request().substr(4, c.Request().find(' ', 4) - 4);
    const bool is_list = path.starts_with("/v1/");
    c.Send(ScriptServer::Answer("200 OK", is_list ? Contents(feed_.Root() + path) : document_));
  }};
};

TEST_F(WgetFeed, PassesOnWhatTheSignedListReleasesToThisRouter) {
  feed_.PutList(feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010, 0, "07")}));
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76010", 76010)), "VXM 1.4.0-76010;");
  EXPECT_EQ(Offered(""), "");
}

TEST_F(WgetFeed, ABetaReleaseIsOfferedAsBetaOnly) {
  feed_.PutList(
      feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010, 0, "0123456789", "Beta")}));
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76010", 76010)), "") << "only the document says it is finished";
  EXPECT_TRUE(log_.WaitFor("dropped: it has another phase in the signed list")) << log_.All();
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76010", 76010, "Beta")), "VXM 1.4.0-76010Beta;");
  EXPECT_EQ(
      Offered(Item("VXM 1.4.0-76010", 76010, "Beta"), "unique=kalo_m1&build_num=76000&group_id=7"),
      "")
      << "not asked for";
}

TEST_F(WgetFeed, AnAutomaticUpdateTakesBetaReleasesOnTheBetaChannelOnly) {
  feed_.PutList(
      feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010, 0, "0123456789", "Beta")}));
  const std::string item = Item("VXM 1.4.0-76010", 76010, "Beta");
  const auto lock = FileLock::TryTake(KALO::paths::kAutoUpdateLock);
  ASSERT_TRUE(lock);
  EXPECT_EQ(Offered(item), "");
  ASSERT_EQ(KLIBCINFOSetKeyValue("update_channel", "beta"), 1);
  EXPECT_EQ(Offered(item), "VXM 1.4.0-76010Beta;");
}

TEST_F(WgetFeed, AStagedReleaseReachesItsShareOfRoutersOnly) {
  feed_.PutList(feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010, 0, "0")}));
  const std::string item = Item("VXM 1.4.0-76010", 76010);
  EXPECT_EQ(Offered(item), "") << "it is for group 0, this router is in group 7";
  SetRouter("1230");
  EXPECT_EQ(Offered(item), "VXM 1.4.0-76010;");
  feed::Release some = feed::Example("VXM 1.4.0-76010", 76010, 0, "0");
  some.share = 123;
  feed_.PutList(feed::ExampleList({some}));
  EXPECT_EQ(Offered(item), "") << "for 1.23 % of all routers: numbers 0 to 1220 of group 0";
  SetRouter("1220");
  EXPECT_EQ(Offered(item), "VXM 1.4.0-76010;");
}

TEST_F(WgetFeed, WhatIsNotInTheSignedListIsDropped) {
  feed_.PutList(feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010),
                                   feed::Example("VXM 1.4.0-76010 Update 1", 76010, 1),
                                   feed::Example("VXM 1.4.0-76020", 76020)}));
  for (const std::string& item :
       {Item("VXM 1.4.0-76011", 76011), Item("VXM 1.4.0-76010", 76020),
        Item("VXM 9.9-76010", 76010), Item("VXM 1.4.0-76010 Update 1", 76010),
        Item("VXM 1.4.0-76010", 76010, "Gamma"), Item("VXM 1.4.0-76010", 76010, "", "kalo_m2"),
        Item("no version", 0), std::string("7"), std::string(R"({"title":{}})")}) {
    EXPECT_EQ(Offered(item), "") << item;
  }
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76011", 76011) + "," + Item("VXM 1.4.0-76020", 76020)),
            "VXM 1.4.0-76020;");
}

TEST_F(WgetFeed, AnOfferPastASteppingStoneIsDropped) {
  auto list = feed::ExampleList(
      {feed::Example("VXM 1.4.0-76010", 76010), feed::Example("VXM 1.4.0-76020", 76020)});
  list.stones = {76010};
  feed_.PutList(list);
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76020", 76020)), "");
  EXPECT_EQ(Offered(Item("VXM 1.4.0-76010", 76010)), "VXM 1.4.0-76010;");
}

TEST_F(WgetFeed, WithoutASignedListNothingIsOffered) {
  const std::string document = Document(Item("VXM 1.4.0-76010", 76010));
  EXPECT_EQ(Ask(document), kUntrusted);
  EXPECT_EQ(Contents(path_), "");
  const auto list = feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010)});
  feed_.PutList(list, patch::SigningKey::Generate().Sign(feed::WriteReleaseList(list)));
  EXPECT_EQ(Ask(document), kUntrusted);
  EXPECT_EQ(Contents(path_), "");
}

TEST_F(WgetFeed, AnAnswerOfAnotherFormIsNoDocument) {
  for (const char* text : {"", "{}", "[]", "null", R"({"channel":{"item":{}}})", "{\"channel\":[]}",
                           R"({"channel":{"item":[]}} trailing)", "<html>"}) {
    EXPECT_EQ(Ask(text), kRefused) << text;
    EXPECT_EQ(Contents(path_), "") << text;
  }
}

TEST_F(WgetFeed, TheTimeoutBoundsTheSignedListToo) {
  feed_.PutList(feed::ExampleList({feed::Example("VXM 1.4.0-76010", 76010)}));
  const ScriptServer hanging([](const ScriptClient& c) { c.WaitForEnd(); });
  test::TestFeed::Configure(hanging.Url());
  document_ = Document(Item("VXM 1.4.0-76010", 76010));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Run({"--timeout=1", "--tries=1", "-O", path_, server_.Url() + "/?" + kQuery}),
            kUntrusted);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, test::kLongWait / 2);
}

TEST_F(Wget, AMebibyteIsStillTaken) {
  const std::string document(std::size_t{1} << 20, 'x');
  EXPECT_EQ(
      GetFrom([&](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", document)); }),
      kOk);
  EXPECT_EQ(Contents(path_).size(), document.size());
}

TEST_F(Wget, ReplacesWhatSomebodyPlanted) {
  const std::string victim = folder_.Write("victim", "precious");
  fs::create_symlink(victim, path_);
  const auto answer = [](const ScriptClient& c) { c.Send(ScriptServer::Answer("200 OK", "new")); };
  EXPECT_EQ(GetFrom(answer), kOk);
  EXPECT_EQ(Contents(victim), "precious");
  EXPECT_FALSE(fs::is_symlink(path_));
  EXPECT_EQ(Contents(path_), "new");
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  EXPECT_EQ(GetFrom(answer), kOk);
  EXPECT_TRUE(fs::is_regular_file(path_));
}

TEST_F(Wget, SaysWhenTheFileCannotBeMade) {
  fs::create_directory(path_);
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kCannotWrite);
  path_ = folder_.Path("missing/document");
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kCannotWrite);
}

TEST_F(Wget, TakesItsFiveArgumentsAndNothingElse) {
  EXPECT_EQ(Run({}), kUsage);
  EXPECT_EQ(Run({"--timeout=5", "--tries=1", "-O", path_}), kUsage);
  EXPECT_EQ(Run({"--timeout=5", "--tries=2", "-O", path_, "http://127.0.0.1:1/"}), kUsage);
  EXPECT_EQ(Run({"--tries=1", "--timeout=5", "-O", path_, "http://127.0.0.1:1/"}), kUsage);
  for (const char* timeout : {"--timeout=0", "--timeout=601", "--timeout=5s", "--timeout="}) {
    EXPECT_EQ(Run({timeout, "--tries=1", "-O", path_, "http://127.0.0.1:1/"}), kUsage) << timeout;
  }
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(Get("http://127.0.0.1:1/"), kNetwork);
}

}  // namespace
}  // namespace kalo::fetch
