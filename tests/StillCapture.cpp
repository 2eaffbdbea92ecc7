// Still pictures as files: by a snapshot's URL in shared memory, and by an application that asks
// for each picture's URL.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <tuple>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Decoder.h"
#include "Fixture.h"
#include "Photography.h"
#include "quill/Hash.h"
#include "quill/IClass.h"
#include "quill/Message.h"
#include "quill/VbrcBlock.h"
#include "SnapOutcome.h"
#include "tessel/IPhotography.h"

namespace tessel::tests {
namespace {

namespace fs = std::filesystem;

using api::streaming::IPhotography;
using Taker = quill::host::Handle<IPhotography>;

constexpr char kSnap[] = "ApiJpegSnap-dualos";
constexpr char kPhotography[] = "ApiPhotography-dualos";

class StillCapture : public StreamTest {
 protected:
  StillCapture() {
    Use([](auto& options) {
      options.session_bytes = std::size_t{64} << 20;
      options.paced = false;
    });
    std::string pattern = ::testing::TempDir() + "/snapXXXXXX";
    _folder = mkdtemp(pattern.data());
  }
  ~StillCapture() override { fs::remove_all(_folder); }

  static Taker Make(const char* name) {
    Taker taker = quill::host::Create<IPhotography>(name);
    taker->SetWidth(160);
    taker->SetHeight(120);
    return taker;
  }
  static Taker Playing(const char* name) {
    Taker taker = Make(name);
    EXPECT_TRUE(taker->Open() && taker->Start());
    return taker;
  }
  std::string Path(const std::string& name) const { return _folder + "/" + name; }
  std::string Url(const std::string& name) const { return "file://" + Path(name); }

  static bool SnapTo(const Taker& taker, const std::string& url) {
    taker->SetURL(url.c_str());
    return taker->Snap(true);
  }
  // Whether the file is one whole JPEG picture of the size asked for.
  static bool IsPicture(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), {});
    if (!bytes.ends_with("\xff\xd9")) return false;
    frame_t frame;
    frame.data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    frame.size = static_cast<std::uint32_t>(bytes.size());
    Decoder decoder(AV_CODEC_ID_MJPEG);
    return decoder.Decode(frame) && decoder.picture->width == 160 &&
           decoder.picture->height == 120 && decoder.Number();
  }
  // The names of all that is in the folder, in order.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(_folder)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // From here on the sensor gives a single picture, and then ends.
  void LetTheSensorEnd() {
    ASSERT_TRUE(SnapTo(Playing(kSnap), Url("one.jpeg")));
    KillRtos();
    Use([this](auto& options) { options.sensor = Path("one.jpeg"), options.loop = false; });
  }

  std::string _folder;
};

class EachTaker : public StillCapture, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, EachTaker, ::testing::Values(kSnap, kPhotography),
                         [](const auto& instance) {
                           return std::string(instance.param == kSnap ? "Snap" : "Photography");
                         });

TEST_P(EachTaker, WritesWholePicturesUnderTheirNamesWhileAStreamRuns) {
  std::atomic<std::uint32_t> frames{0};
  std::atomic<bool> has_gap{false};
  const Camera camera = OpenPush([&](Frame& frame) {
    if (frame->seq != frames++) has_gap = true;
    return true;
  });
  const Taker taker = Playing(GetParam());
  Lines names;
  for (int i = 10; i < 40; ++i) {
    names.push_back("p" + std::to_string(i) + ".jpeg");
    ASSERT_TRUE(SnapTo(taker, Url(names.back())));
    ASSERT_TRUE(IsPicture(Path(names.back()))) << "it is there when the snapshot returns";
  }
  EXPECT_EQ(Files(), names) << "and nothing else is";
  EXPECT_TRUE(camera->Close());
  EXPECT_FALSE(frames < 10 || has_gap);
}

// Each URL with the file that it means, or with the reason why there can be none.
TEST_P(EachTaker, WritesWhereTheUrlPointsOrLogsWhyItCannot) {
  const Taker taker = Playing(GetParam());
  const fs::path before = fs::current_path();
  fs::current_path(_folder);
  for (const char* name : {"folder", "%03d"}) fs::create_directory(name);
  fs::create_symlink("loop", "loop");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  std::ofstream("file") << "old";
  const bool is_snap = GetParam() == kSnap;
  const std::string longest(255, 'x');
  std::string full_url = "file:///full.jpeg";  // as long as the area for it, with its end
  full_url.insert(7, _folder + std::string(1023 - full_url.size() - _folder.size(), '/'));
  const std::tuple<std::string, std::string, const char*> rows[] = {
      {full_url, "full.jpeg", ""},
      {"file://plain.jpeg", "plain.jpeg", ""},
      {"FILE://" + Path("absolute.jpeg"), "absolute.jpeg", ""},
      {"file://with%20blank.jpeg", "with blank.jpeg", ""},
      {"file://%C3%a4.jpeg", "\xc3\xa4.jpeg", ""},
      {"file://n%03d.jpeg", "n%03d.jpeg", ""},
      {"file://a%2", "a%2", ""},
      {"file://q?x=1#y", "q?x=1#y", ""},
      {"file://{", "{", ""},
      {"file://" + longest, longest, ""},
      {"", "", is_snap ? "is no file:// URL" : "the callback gives no URL"},
      {"/snap.jpeg", "", "is no file:// URL"},
      {"file:/snap.jpeg", "", "is no file:// URL"},
      {"http://localhost/snap.jpeg", "", "is no file:// URL"},
      {"file://", "", "names no file"},
      {"file://new/", "", "names no file"},
      {"file://folder%2F", "", "names no file"},
      {"file://folder/%00", "", "has a zero byte in its path"},
      {"file://folder", "", "is a folder"},
      {"file://.%2ffold%65r", "", "is a folder"},
      {"file://%03d", "", "is a folder"},
      {"file://fifo", "", "is no regular file"},
      {"file://loop", "", "Too many levels of symbolic links"},
      {"file://file/snap.jpeg", "", "Not a directory"},
      {"file://missing/snap.jpeg", "", "No such file or directory"},
      {"file://" + longest + "x", "", "File name too long"},
      {"file://" + std::string(4096, '/'), "", is_snap ? "vbrc->extra_max<len+1" : "names no file"},
      {"file://good.jpeg", "good.jpeg", ""},  // after all that
  };
  const std::size_t files = Files().size();
  std::size_t written = 0;
  for (const auto& [url, file, reason] : rows) {
    EXPECT_EQ(SnapTo(taker, url), !file.empty()) << url;
    EXPECT_TRUE(file.empty() ? IsLogged(reason) : IsPicture(file)) << url;
    written += file.empty() ? 0 : 1;
  }
  EXPECT_EQ(Files().size(), files + written) << "and nothing else";
  fs::current_path(before);
}

// Limits the size of this process's files, as a disk does that runs full in the middle of one.
TEST_P(EachTaker, LeavesTheOlderFileWholeWithoutRoomForTheNewOne) {
  const Taker taker = Playing(GetParam());
  ASSERT_TRUE(SnapTo(taker, Url("snap.jpeg")));
  signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small = {.rlim_cur = 1000, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_FALSE(SnapTo(taker, Url("snap.jpeg")));
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_TRUE(IsLogged("File too large"));
  EXPECT_TRUE(IsPicture(Path("snap.jpeg")));
  EXPECT_EQ(Files(), Lines{"snap.jpeg"});
  EXPECT_TRUE(SnapTo(taker, Url("next.jpeg")));
}

TEST_P(EachTaker, BlockingSnapshotReturnsWhenDisabledOrItsRtosIsLost) {
  const Taker taker = Make(GetParam());
  ASSERT_TRUE(taker->Open());
  const auto snap = [&] { return taker->Snap(true); };
  auto disabled = std::async(std::launch::async, snap);
  EXPECT_EQ(disabled.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout)
      << "not started, so it waits";
  taker.Object()->Enable(false);
  EXPECT_TRUE(disabled.get()) << "it was told not to wait";
  taker.Object()->Enable(true);
  auto lost = std::async(std::launch::async, snap);
  KillRtos();
  EXPECT_FALSE(lost.get() || taker->Snap(true));
  taker->Close();
  ASSERT_TRUE(taker->Open() && taker->Start());
  EXPECT_TRUE(SnapTo(taker, Url("after.jpeg")));
  EXPECT_FALSE(SnapTo(taker, "nonsense")) << "known by its number, also in another stream";
}

// Its application stops on this side, though the real-time side does not answer.
TEST_P(EachTaker, StopThatFailsOnTheRtosEndsPlay) {
  std::atomic<bool> is_deaf{false};
  Replace("shm0_cmd", [&is_deaf](AttrSet& args, const Command& real) {
    return !(is_deaf && args.Get("cmd") == std::string("tesselStatus")) && real(args);
  });
  const Taker taker = Playing(GetParam());
  is_deaf = true;
  EXPECT_FALSE(taker->Stop());
  EXPECT_EQ(taker->CurrentState(), State::kReady);
  EXPECT_FALSE(taker->ChangeUp(State::kPlay)) << "nothing would play";
  is_deaf = false;
  EXPECT_TRUE(taker->ChangeUp(State::kPlay) && SnapTo(taker, Url("again.jpeg")));
  is_deaf = true;
  EXPECT_FALSE(taker->Close());
  EXPECT_EQ(taker->CurrentState(), State::kReady);
  is_deaf = false;
}

TEST_P(EachTaker, PausedOneWritesOncePlayGoesOn) {
  const Taker taker = Playing(GetParam());
  fs::create_directory(Path("later.jpeg"));  // so that nothing can be written yet
  ASSERT_TRUE(taker->ChangeUp(State::kPause));
  taker->Snap(Url("later.jpeg").c_str(), false);
  ASSERT_TRUE(Eventually([] { return Counters().published == 1 && Counters().untriggered > 10; }));
  EXPECT_TRUE(fs::remove(Path("later.jpeg")));
  EXPECT_EQ(LogLines(), Lines()) << "nothing has been tried";
  EXPECT_TRUE(taker->ChangeDown(State::kPlay));
  EXPECT_TRUE(Eventually([this] { return IsPicture(Path("later.jpeg")); }));
}

TEST_F(StillCapture, ApplicationWithoutAnOwnerCanBeStopped) {
  auto* made = new dualos::Photography;
  const std::string layout = made->AppStringCreate().substr(sizeof "type=Application");
  auto* alone = quill::host::CreateObject("Application", layout.c_str());
  ASSERT_TRUE(alone != nullptr && alone->SetStr("statusup", "play"));
  EXPECT_TRUE(alone->SetStr("statusdown", "null"));
  alone->Release();
  made->Release();
}

TEST_F(StillCapture, PhotographyTellsOfEachPictureAndASnapshotOfNone) {
  const Taker taker = Make(kPhotography);
  Lines texts;
  taker->RegisterMessageCallback([&texts](const char* text) {
    texts.emplace_back(text);  // the snapshot waits for it
    return true;
  });
  EXPECT_FALSE(taker->SendMessage("before"));
  EXPECT_EQ(LogLines().back(), "plugin/api/linux/Photography.cpp/#/SendMessage:\t!_obj");
  ASSERT_TRUE(taker->Open() && taker->Start());
  ASSERT_TRUE(SnapTo(taker, Url("told.jpeg")));
  EXPECT_FALSE(SnapTo(taker, "nonsense"));
  ASSERT_TRUE(taker->Stop());
  const auto size = std::to_string(fs::file_size(Path("told.jpeg")));
  EXPECT_EQ(texts, (Lines{"newframe:url=" + Url("told.jpeg") + ",size=" + size,
                          "failed:url=nonsense,reason=is no file:// URL,request=2"}));
  EXPECT_FALSE(taker->Start()) << "its application is gone";

  const Taker snap = Playing(kSnap);
  snap->RegisterMessageCallback([](const char*) {
    ADD_FAILURE() << "it has no way for messages";
    return true;
  });
  EXPECT_FALSE(snap->SendMessage("anything"));
  EXPECT_TRUE(SnapTo(snap, Url("told.jpeg")));
}

// As the end comes while the sink is stopped, the message finds its object in the middle of that.
TEST_F(StillCapture, EndIsToldLastAndItsCallbackMayTakeTheObjectDown) {
  const std::pair<const char*, bool (*)(IPhotography&)> rows[] = {
      {"newfr", [](IPhotography& taker) { return taker.Stop(); }},
      {"ended", [](IPhotography& taker) { return taker.Stop(); }},
      {"ended", [](IPhotography& taker) { return taker.Close(); }},
      {"ended", [](IPhotography& taker) { return taker.ChangeDown(State::kNull); }},
      {"ended", [](IPhotography&) { return true; }}};
  LetTheSensorEnd();
  for (int round = 0; round < 60; ++round) {
    const auto [note, action] = rows[round % std::size(rows)];
    const bool client_waits = round % 2 == 0;
    const Taker taker = Make(kPhotography);
    taker->Snap(Url("copy.jpeg").c_str(), false);
    Lines told;
    Event done;
    std::atomic<bool> is_inside{false};
    taker->RegisterMessageCallback(
        [&, last = note, act = action, client = std::this_thread::get_id()](const char* text) {
          told.push_back(std::string(text).substr(0, 5));
          if (told.back() != last) return true;
          is_inside = true;
          EXPECT_TRUE(act(*taker) && client != std::this_thread::get_id());
          done.Set();
          static_cast<void>(Event().WaitFor(std::chrono::milliseconds(5)));
          is_inside = false;
          return true;
        });
    ASSERT_TRUE(taker->Open() && taker->Start());
    ASSERT_TRUE(!client_waits || done.Wait());
    EXPECT_TRUE(taker->Stop() && taker->Close());
    EXPECT_FALSE(is_inside) << "the client waits for the callback";
    EXPECT_TRUE(!client_waits || told.back() == note) << note;
    EXPECT_EQ(taker->CurrentState(), State::kNull);
  }
}

TEST_F(StillCapture, EndIsToldThoughAStopComesMeanwhile) {
  LetTheSensorEnd();
  const Taker taker = Make(kSnap);
  taker->Snap(Url("copy.jpeg").c_str(), false);
  Event told;
  Event ended;
  Event stops;
  taker.Object()->RegisterMessageProcessCallback([&](quill::base::Message& message) {
    const char* note = nullptr;
    if (message.GetStr("extra", note) && note == std::string("ended")) ended.Set();
    told.Set();
    return stops.Wait();
  });
  ASSERT_TRUE(taker->Open() && taker->Start());
  EXPECT_TRUE(told.Wait());
  EXPECT_TRUE(Eventually([] {
    std::vector<quill::host::RtosStream> streams;
    std::string error;
    return quill::host::ListRtosStreams(streams, error) && streams.at(0).state == "ended";
  }));
  auto stop = std::async(std::launch::async, [&] { return taker->Stop(); });
  stops.Set();
  EXPECT_TRUE(stop.get() && ended.Wait());
  EXPECT_FALSE(taker->Snap(true)) << "none can come any more";
}

// Each step comes between two looks for the picture: a failure of the request before, the picture
// and then the end, or the failure of its own request.
TEST(SnapOutcome, BlockingSnapshotFailsForItsOwnPictureOnly) {
  dualos::SnapOutcome outcome;
  const auto heed = [&outcome](const char* text, const char* note) {
    auto* message = new quill::base::Message(text, note);
    outcome.OnMessage(*message);
    message->Release();
  };
  int looks = 0;
  const auto ends_well = [&] {
    if (++looks == 1) heed("failed:url=x,reason=y,request=1", "failed");
    if (looks == 2) heed("ended:reason=z", "ended");
    return looks > 2;
  };
  EXPECT_TRUE(outcome.Await(2, outcome.Ends(), ends_well));
  outcome.Begin();
  EXPECT_FALSE(outcome.Await(3, outcome.Ends(), [&] {
    heed("failed:url=x,reason=y,request=3", "failed");
    return false;
  }));
}

// Such a close does not wait, so the sink goes on without its stream.
TEST_F(StillCapture, CallbackOfAnotherStreamMayCloseOneThatIsWriting) {
  const Taker taker = Playing(kSnap);
  Event writes;
  Event goes_on;
  taker.Object()->RegisterMessageProcessCallback([&](quill::base::Message&) {
    writes.Set();
    return goes_on.Wait();
  });
  taker->Snap(Url("taken.jpeg").c_str(), false);
  ASSERT_TRUE(writes.Wait());
  fs::create_directory(Path("taken.jpeg"));  // so that the picture cannot get its name
  Event closed;
  std::atomic<bool> is_open{true};
  const Camera camera = OpenPush([&](Frame&) {
    EXPECT_TRUE(!is_open.exchange(false) || taker->Close());
    closed.Set();
    return true;
  });
  ASSERT_TRUE(closed.Wait() && camera->Stop());
  goes_on.Set();
  EXPECT_TRUE(taker->Stop()) << "waits for the sink";
  EXPECT_TRUE(IsLogged("Is a directory"));
}

TEST_F(StillCapture, UrlIsNotMixedWithTheOneBeforeIt) {
  const Taker taker = Playing(kSnap);
  const std::string urls[] = {Url(std::string(250, 'a')), Url(std::string(250, 'b'))};
  for (int i = 0; i < 2000; ++i) {
    taker->SetURL(urls[i % 2].c_str());
    ASSERT_TRUE(taker->Snap(false));
  }
  ASSERT_TRUE(Eventually([this] { return !Files().empty(); }));
  EXPECT_TRUE(taker->Close());
  for (const std::string& name : Files()) EXPECT_TRUE(Url(name) == urls[0] || Url(name) == urls[1]);
}

TEST_F(StillCapture, TemporaryNameThatIsTakenIsPassedOver) {
  const Taker taker = Playing(kSnap);
  Lines seen;  // while the latest picture is written
  taker.Object()->RegisterMessageProcessCallback([&](quill::base::Message& message) {
    const char* note = nullptr;
    if (message.GetStr("extra", note) && note == std::string("iosink")) seen = Files();
    return true;
  });
  ASSERT_TRUE(SnapTo(taker, Url("snap.jpeg")));
  const std::string stem = ".tessel-" + std::to_string(getpid()) + "-";
  ASSERT_TRUE(seen.size() == 1 && seen[0].starts_with(stem));
  const int last = std::stoi(seen[0].substr(stem.size()));
  for (int i = 1; i < 50; ++i) std::ofstream(Path(stem + std::to_string(last + i))) << "old";
  EXPECT_TRUE(SnapTo(taker, Url("snap.jpeg")));
  EXPECT_EQ(std::count(seen.begin(), seen.end(), stem + std::to_string(last + 50)), 1);
  EXPECT_EQ(Files().size(), 50U) << "nothing is left of it but the picture";
}

TEST_F(StillCapture, SnapshotPostsItsUrlWholeOrNotAtAll) {
  WatchBlock();
  const Taker taker = Make(kSnap);
  const auto* extra = reinterpret_cast<const char*>(_block) + 616;
  const unsigned user = quill::base::Hash("UrlSimple");
  const std::string longest = "file://" + std::string(1016, 'y');
  taker->SetURL(longest.c_str());
  LogLines(quill::stream::kTrace);
  EXPECT_TRUE(taker->Snap(false));
  EXPECT_EQ(extra, longest);
  EXPECT_TRUE(_block->extra_len == 1024 && _block->extra_max == 1024);
  Lines expected;
  for (const std::string& text :
       {std::string("len=1023"), "(void*)vbrc=" + quill::base::ToString<const void*>(_block),
        "_url=" + longest, "(char*)vbrc->extra=" + longest}) {
    expected.push_back("\033[33mplugin/api/linux/JpegSnap.cpp/#/Snap:\t" + text + "\n\033[0m");
  }
  EXPECT_EQ(ColouredLines(quill::stream::kTrace), expected);
  const std::tuple<int, unsigned, std::string, const char*> rows[] = {
      {0, 0, longest, "!vbrc->extra_max"},
      {10, 7, longest, "vbrc->extra_user!=(void*)::Hash(\"UrlSimple\")"},
      {1024, user, longest + "y", "vbrc->extra_max<len+1"},
      {1 << 20, user, longest + std::string(129, 'y'), "vbrc->extra_max<len+1"},  // of the block
      {-1, user, "", "vbrc->extra_max<len+1"},
  };
  for (const auto& [extra_max, extra_user, url, line] : rows) {
    _block->extra_max = extra_max;
    _block->extra_user = extra_user;
    taker->SetURL(url.c_str());
    EXPECT_FALSE(taker->Snap(false)) << line;
    EXPECT_EQ(LogLines(), Lines{std::string("plugin/api/linux/JpegSnap.cpp/#/Snap:\t") + line});
  }
  EXPECT_EQ(extra, longest);
  EXPECT_EQ(_block->trigger_req, 1) << "nothing was touched";
  _block->qp_reported = 33;
  EXPECT_EQ(taker->GetQP(), 33);
}

// What a stranger leaves in the area is refused and reported, and not read past its end.
TEST_F(StillCapture, SnapshotRefusesAnAreaWithoutAWholeUrl) {
  WatchBlock();
  const Taker taker = Make(kSnap);
  std::atomic<int> told{0};  // a failure is told behind its line in the log
  taker.Object()->RegisterMessageProcessCallback(
      [&told](quill::base::Message&) { return ++told > 0; });
  ASSERT_TRUE(taker->Open() && taker->Start());
  const auto user = quill::base::Hash("UrlSimple");
  const std::tuple<unsigned, int, const char*> rows[] = {
      {user + 1, 5, "the extra area belongs to somebody else"},
      {user, 0, "extra_len=0 is outside the extra area"},  // being written, and never done
      {user, 1025, "extra_len=1025 is outside the extra area"},
      {user, 5, "the URL in the extra area does not end where it should"},
  };
  LogLines();
  for (const auto& [extra_user, extra_len, reason] : rows) {
    _block->extra_user = extra_user;
    _block->extra_len = extra_len;
    std::memset(_block->extra, 'z', sizeof _block->extra);
    const int before = told;
    _block->trigger_req.fetch_add(1);
    ASSERT_TRUE(Eventually([&] { return told > before; })) << reason;
    EXPECT_EQ(LogLines(), Lines{std::string("PostFailure:\t!Write(url,packet),") + reason});
  }
  EXPECT_EQ(_block->frame_count, 0);
  _block->extra_user = user;
  EXPECT_TRUE(SnapTo(taker, Url("good.jpeg")));
  EXPECT_EQ(_block->frame_count, 1) << "of files, not of pictures";
}

TEST_F(StillCapture, PhotographyDescribesItsApplicationAndGivesItsUrl) {
  const std::string file = "plugin/api/linux/Photography.cpp/#/";
  quill::base::TClass<>::Enter<dualos::Photography>("photography");
  const auto made = quill::host::Create<dualos::Photography>("photography");
  made->SetQP(40);
  EXPECT_EQ(made->GetQP(), 40);
  const std::string text = made->AppStringCreate();
  EXPECT_NE(made->AppStringCreate(), text) << "each has a name of its own";
  EXPECT_EQ(Masked(Masked(text, "0x[0-9a-f]+", "@"), "unique_[0-9]+", "#"),
            "type=Application,layout={type=pipeline,layout={ShmSource:connect={type=pipeline,"
            "serialize={pv-yuv-src-adv:w=1920,h=1080+FrameTrigger:name=ftrig,vbrc=@+encoder-jpeg:"
            "name=enc,clock=400000,qp=40+FifoSink:max=2},name=plPvH264Src#},name=vsrc,link=null+"
            "IOSinkPerFrame:name=fifo,dbg=true,newFrame=true,urlLayout={type=UrlCallback,cb=@,hd="
            "@}}}");
  EXPECT_EQ(dualos::Photography::cbCreateUrl(made.get()), "file://snap.jpeg");
  made->SetURL("file://other.jpeg");
  made->SetURL(nullptr);
  EXPECT_EQ(dualos::Photography::cbCreateUrl(made.get()), "file://other.jpeg");
  EXPECT_TRUE(made->Open() && made->Open());
  EXPECT_EQ(quill::host::Streams().size(), 1U) << "one application";
  EXPECT_TRUE(made->Close());
  LogLines();
  EXPECT_FALSE(made->Pause() || made->Resume());
  EXPECT_EQ(dualos::Photography::cbCreateUrl(nullptr), "");
  EXPECT_EQ(LogLines(),
            (Lines{file + "Pause:\t!_obj", file + "Resume:\t!_obj", file + "cbCreateUrl:\t!hd"}));
  Replace("shm0_cmd", [](AttrSet&, const Command&) { return false; });
  EXPECT_FALSE(made->Open());
  EXPECT_EQ(LogLines().back(), file + "Open:\t!_obj->Set(\"statusup\",\"ready\")");
}

// Only a start takes the count back, also one that fails.
TEST_F(StillCapture, PhotographyWaitsForTheCountNextAfterItsRequest) {
  auto* made = new dualos::Photography;
  auto snap = std::async(std::launch::async, [made] { return made->Snap(true); });
  ASSERT_TRUE(Eventually([made] { return made->Block()->trigger_req == 1; }));
  auto* picture = new quill::base::Message("", nullptr);
  made->processMessageNewFrame(*picture);
  made->processMessageNewFrame(*picture);
  EXPECT_EQ(snap.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_FALSE(made->Start()) << "it is not open";
  made->processMessageNewFrame(*picture);
  EXPECT_EQ(snap.wait_for(kDeadline), std::future_status::ready);
  made->Enable(false);  // ends it in any case
  EXPECT_TRUE(snap.get());
  picture->Release();
  made->Release();
}

TEST_F(StillCapture, SnapshotWithoutItsBlockDoesNothing) {
  Replace("shm_alloc", [](AttrSet&, const Command&) { return false; });
  const Taker taker = Make(kSnap);
  taker->SetQP(1);
  EXPECT_EQ(taker->GetQP(), 0);
  EXPECT_FALSE(taker->Snap(true) || taker->Open());
}

}  // namespace
}  // namespace tessel::tests
