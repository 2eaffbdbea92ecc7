// Messages between the two sides: their borders, what each side makes of nonsense, and of silence.
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "AudioDevices.h"
#include "Connection.h"
#include "Doorbell.h"
#include "Fixture.h"
#include "OddRtos.h"
#include "quill/SharedMemory.h"
#include "Wire.h"

namespace tessel::tests {
namespace {

using link::ReceiveMessage;
using link::SendMessage;
using link::SendResult;
using link::WireMessage;

struct Ends {
  Ends() {
    int fds[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds), 0);
    near = UniqueFd(fds[0]);
    far = UniqueFd(fds[1]);
  }
  UniqueFd near;
  UniqueFd far;
};

TEST(Wire, CarriesTheLongestMessageAndEightDescriptorsUntilTheReceiverIsBusy) {
  const Ends ends;
  const timeval timeout = {.tv_sec = 0, .tv_usec = 1000};
  ASSERT_EQ(setsockopt(ends.near.Get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout), 0);
  const link::Doorbell bell = link::Doorbell::Create();
  const std::vector<int> bells(8, bell.Fd());
  WireMessage sent = {WireMessage::kRequest, 7, std::string(link::kMaxMessageBytes - 8, 'x')};
  ASSERT_EQ(SendMessage(ends.near.Get(), sent, bells), SendResult::kSent);
  WireMessage got;
  std::vector<UniqueFd> fds;
  ASSERT_TRUE(ReceiveMessage(ends.far.Get(), got, fds));
  EXPECT_EQ(std::tie(got.kind, got.number, got.text), std::tie(sent.kind, sent.number, sent.text));
  ASSERT_EQ(fds.size(), bells.size());
  EXPECT_EQ(fcntl(fds[7].Get(), F_GETFD), FD_CLOEXEC) << "no other program inherits it";
  EXPECT_EQ(eventfd_write(fds[7].Get(), 3), 0);
  eventfd_t count = 0;
  EXPECT_TRUE(eventfd_read(bell.Fd(), &count) == 0 && count == 3);
  SendResult result = SendResult::kSent;
  for (int i = 0; i < 1000 && result == SendResult::kSent; ++i) {
    result = SendMessage(ends.near.Get(), sent);
  }
  EXPECT_EQ(result, SendResult::kBusy) << "not gone";
  sent.text += "x";
  EXPECT_EQ(SendMessage(ends.near.Get(), sent), SendResult::kTooLong);
  EXPECT_EQ(SendMessage(ends.near.Get(), {}, std::vector<int>(9, 0)), SendResult::kTooLong);
}

TEST(Wire, ReadsNonsenseAsAnEventWithoutTextAndANulAsUnreadable) {
  Ends ends;
  WireMessage got;
  std::vector<UniqueFd> fds;
  const std::string huge(link::kMaxMessageBytes + 100, 'x');
  for (const auto& [raw, text] : {std::pair(std::string("abc"), ""),
                                  {huge, ""},
                                  {std::string("\3\0\0\0\0\0\0\0a\0b", 11), "}"}}) {
    ASSERT_EQ(send(ends.near.Get(), raw.data(), raw.size(), 0), static_cast<ssize_t>(raw.size()));
    got.text = "old";
    ASSERT_TRUE(ReceiveMessage(ends.far.Get(), got, fds));
    EXPECT_TRUE(got.kind == WireMessage::kEvent && got.number == 0 && got.text == text);
  }
  ends.near = UniqueFd();
  EXPECT_FALSE(ReceiveMessage(ends.far.Get(), got, fds));
  EXPECT_EQ(SendMessage(ends.far.Get(), {}), SendResult::kGone) << "and no signal";
}

constexpr char kSession[] = "{s={offset=8192,size=65536}}";
constexpr char kChain[] = "pv-yuv-src-adv+ShmSink:session_name=s";

// The real-time side's end of the wire, served by a thread of this process.
class Served : public ::testing::Test {
 protected:
  ~Served() override {
    _ends.near = UniqueFd();
    _thread.join();
  }
  std::string Ask(const std::string& text, const std::vector<int>& fds = {}) {
    SendMessage(_ends.near.Get(), {WireMessage::kRequest, ++_number, text}, fds);
    WireMessage answer;
    std::vector<UniqueFd> none;
    EXPECT_TRUE(ReceiveMessage(_ends.near.Get(), answer, none));
    EXPECT_EQ(answer.number, _number);
    return answer.text;
  }
  void SayHello() { ASSERT_TRUE(Ask(hello, {window->Fd()}).starts_with("pid=")); }
  // Asks for an application of that chain; sessions are pairs of a name and an area.
  std::string Create(const std::string& chain, const std::string& sessions = kSession) {
    const std::vector<int> bells(sessions.empty() ? 0 : 2, bell.Fd());
    return Ask("cmd=tesselCreate,blocks={4096=744},sessions=" + sessions +
                   ",layout={type=pipeline,layout={" + chain + "}}",
               bells);
  }
  std::string error;
  const std::unique_ptr<link::SharedWindow> window = link::SharedWindow::Create(1 << 20, error);
  const link::Doorbell bell = link::Doorbell::Create();
  const std::string hello = "cmd=hello,version=1,base=0x100000";

 private:
  Ends _ends;
  std::uint32_t _number = 0;
  rtos::AudioDevices _audio = rtos::AudioDevices::Usual();
  rtos::RealTimeSide _side{OddElements(), _audio};
  rtos::Connection _connection{std::move(_ends.far), _side};
  std::thread _thread{[this] { _connection.Serve(); }};
};

TEST_F(Served, HelloComesFirstAndOnce) {
  EXPECT_EQ(Ask("cmd=tesselMedia,object_base=0x1"), "error=a command before hello");
  EXPECT_EQ(Ask(hello), "error={hello takes one window, once}");
  EXPECT_EQ(Ask("cmd=hello,version=2,base=0x100000", {window->Fd()}),
            "error=this side speaks version 1");
  EXPECT_TRUE(Ask(hello, {bell.Fd()}).starts_with("error=the shared window is not sealed"));
  EXPECT_EQ(Ask(hello, {window->Fd()}), "pid=" + std::to_string(getpid()));
  EXPECT_EQ(Ask(hello, {window->Fd()}), "error={hello takes one window, once}");
}

TEST_F(Served, RefusesWhatLiesOutsideTheWindowOrBelongsToNobody) {
  SayHello();
  const std::string create = "cmd=tesselCreate,sessions=,blocks=";
  const std::pair<std::string, std::string> requests[] = {
      {"}{", "refused; the reason cannot be written"},
      {"a", "{position 1: expected \"=\" after the key}"},
      {"cmd=tesselMedia,object_base=0x9", "{no application object_base=0x9}"},
      {"cmd=tesselMedia,object_base=zz", "{object_base=zz is no handle}"},
      {"cmd=tesselStatus,object_base=0x9,status=fly", "{status=fly is none of ready, play}"},
      {create, "layout is missing"},
      {create + "{-1=744},layout=", "{blocks: key=-1 cannot be read as a number}"},
      {create + "{1048576=744},layout=", "{blocks: 1048576=744 lies outside the window}"},
      {create + ",layout=,board={loop=x}", "{board: loop=x is neither true nor false}"},
      {create + ",layout={type=Application,layout={A}}", "an application that holds no pipeline"},
  };
  for (const auto& [request, reason] : requests) EXPECT_EQ(Ask(request), "error=" + reason);
  EXPECT_EQ(Create("ShmSink", ""),
            "error=a chain that does not begin with a source and end with a sink");
  EXPECT_EQ(Create(kChain, ""),
            "error={element \"ShmSink\": session_name=s is no session handed out}");
  for (const std::string block :
       {"0x100000", "0x101004", "0x100fff", "0x1012e8", "0x102000", "0x0"}) {
    EXPECT_EQ(Create("pv-yuv-src-adv:vbrc=" + block + "+ShmSink:session_name=s"),
              "error={element \"pv-yuv-src-adv\": vbrc=" + block + " lies in no block handed out}");
  }
  EXPECT_TRUE(Create("pv-yuv-src-adv:vbrc=0x101000+ShmSink:session_name=s").starts_with("object"));
}

TEST_F(Served, RefusesSessionsThatDoNotFit) {
  SayHello();
  const auto create = [this](const std::string& area) {
    return Create(kChain, "{s={" + area + "}}");
  };
  for (const std::string area :
       {"offset=1048576,size=4096", "offset=4096,size=1048576", "offset=4097,size=65536",
        "offset=18446744073709551552,size=65536"}) {
    EXPECT_EQ(create(area), "error={sessions: s={" + area + "} lies outside the window}");
  }
  EXPECT_EQ(create("offset=4096,size=4095"),
            "error={element \"ShmSink\": session_name=s is no session handed out}");
  EXPECT_EQ(create("offset=4096,size=8192"),
            "error={element \"ShmSink\": session_name=s has no room for two units of 1000 bytes}");
  const std::string sessions = std::string("cmd=tesselCreate,layout=,blocks=,sessions=") + kSession;
  EXPECT_EQ(Ask(sessions),
            "error={sessions: 1 of them came with 0 descriptors, not with two each}");
  EXPECT_EQ(create("offset=4096"), "error=sessions: s: size is missing");
  for (const auto& bells : {std::vector{window->Fd(), bell.Fd()}, {bell.Fd(), window->Fd()}}) {
    EXPECT_EQ(Ask(sessions, bells),
              "error={sessions: a name longer than 255, or a descriptor that is no eventfd}");
  }
  EXPECT_TRUE(create("offset=8192,size=65536").starts_with("object"));
  EXPECT_EQ(create("offset=69632,size=65536"),
            "error=sessions: s overlaps the area of another session");
}

TEST_F(Served, SteersOnlyWhatAStreamCanBeSteeredBy) {
  SayHello();
  ASSERT_TRUE(Create("pv-yuv-src-adv+h264-encoder-dma+ShmSink:session_name=s")
                  .starts_with("object_base=0x"));
  const std::string list = Ask("cmd=tesselList");
  ASSERT_TRUE(list.starts_with("streams={1={chain=")) << list;
  const std::pair<const char*, const char*> rows[] = {
      {"tesselRequest,stream=1,word=keyframe_req", "the stream has no key frames to ask for"},
      {"tesselRequest,stream=1,word=qp", "\"qp\" is nothing that can be requested"},
      {"tesselSet,stream=1,word=qp,value=3", "the stream has no rate control"},
      {"tesselSet,stream=1,word=frame_count,value=3", "\"frame_count\" is nothing that can be set"},
  };
  for (const auto& [request, answer] : rows) {
    EXPECT_EQ(Ask(std::string("cmd=") + request), std::string("error=") + answer);
  }
}

class CommandWire : public StreamTest {
 protected:
  static std::string Refusal(const std::string& reason) {
    return "RunShm0Command:\t!connection->Run(args)," + reason;
  }
};

TEST_F(CommandWire, ADescriptionThatIsTooLongIsRefused) {
  const Camera camera = Make();
  camera->SetGopType(std::string(link::kMaxMessageBytes, 'P').c_str());
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines()[0], Refusal("tesselCreate: the description is too long"));
  camera->SetGopType("IPPP");
  EXPECT_TRUE(camera->Open());
}

TEST_F(CommandWire, ListsMoreStreamsThanAMessageHolds) {
  UseOddRtos("counts");
  Use([](auto& options) { options.session_bytes = std::size_t{64} << 10; });
  constexpr std::size_t kStreams = 400;
  const std::string name(240, 'n');
  for (std::size_t i = 0; i < kStreams; ++i) {
    AttrSet create(Fill("layout={type=pipeline,layout={pv-yuv-src-adv+ShmSink:session_name=$}}",
                        '$', name + std::to_string(i))
                       .c_str());
    ASSERT_TRUE(RunRtos("tesselCreate", create));
  }
  std::vector<quill::host::RtosStream> streams;
  std::string error;
  ASSERT_TRUE(quill::host::ListRtosStreams(streams, error)) << error;
  ASSERT_EQ(streams.size(), kStreams);
  for (std::size_t i = 0; i < kStreams; ++i) EXPECT_EQ(streams[i].id, static_cast<int>(i) + 1);
}

TEST_F(CommandWire, AnUnreadableAnswerFailsItsRequestAndNoOther) {
  UseOddRtos("garbles");
  for (int round = 0; round < 3; ++round) {
    AttrSet args;
    EXPECT_FALSE(RunRtos("anything", args));
    EXPECT_EQ(LogLines(), Lines{Refusal("an answer that cannot be read")});
    EXPECT_EQ(args.Get("object_base"), nullptr);
  }
  EXPECT_NE(quill::host::RtosProcessId(), 0);
}

TEST_F(CommandWire, AnApplicationThatComesTooLateIsDestroyed) {
  UseOddRtos("delays");
  AttrSet create("layout={type=pipeline,layout={ShmSink:session_name=s}},timeout=20000000");
  const auto used_before = quill::host::GetWindowUse().used_bytes;
  EXPECT_FALSE(RunRtos("tesselCreate", create));
  EXPECT_EQ(LogLines(), Lines{Refusal("tesselCreate: no answer within 20 ms")});
  EXPECT_GT(quill::host::GetWindowUse().used_bytes, used_before) << "it may be written to";
  AttrSet next;
  EXPECT_TRUE(RunRtos("next", next));
  EXPECT_STREQ(next.Get("destroyed"), "0x7");
  EXPECT_EQ(next.Get("object_base"), nullptr) << "the late answer is not taken for this one";
  EXPECT_EQ(quill::host::GetWindowUse().used_bytes, used_before);
}

TEST_F(CommandWire, OpeningAsksForTheMediaOnlyWhereTheCreationHasNotToldIt) {
  std::string asked;
  Replace("shm0_cmd", [&asked](AttrSet& args, const Command& real) {
    asked += args.Get("cmd") + std::string(" ");
    return real(args);
  });
  for (const std::string expected : {"tesselCreate ", "tesselCreate tesselMedia "}) {
    const Camera camera = Make();
    asked.clear();
    EXPECT_TRUE(camera->Open());
    EXPECT_EQ(asked, expected);
    EXPECT_TRUE(camera->Close());
    KillRtos();
    UseOddRtos("asks");
  }
}

TEST_F(CommandWire, AProgramThatEndsAtOnceOrIsMissingFailsTheOpening) {
  const Camera camera = Make();
  UseOddRtos("exits");
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines()[0], Refusal("the real-time side is gone"));
  Use([](auto& options) { options.rtos_program = "/nowhere/tessel-rtos"; });
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines()[0], Refusal("cannot start /nowhere/tessel-rtos: No such file or directory"));
  Use([](auto& options) { options.rtos_program.clear(), options.rtos_arguments.clear(); });
  EXPECT_TRUE(camera->Open()) << "the next command starts afresh";
}

TEST_F(CommandWire, AStoppedProgramFailsTheOpeningWithinASecond) {
  AttrSet args;
  RunRtos("start it", args);
  const pid_t process = quill::host::RtosProcessId();
  EXPECT_EQ(getpgid(process), process) << "Ctrl-C is for the client alone";
  kill(process, SIGSTOP);
  LogLines();
  EXPECT_FALSE(Make()->Open());
  EXPECT_EQ(LogLines()[0], Refusal("tesselCreate: no answer within 1000 ms"));
}

TEST_F(CommandWire, AForkedChildGetsAnErrorAndNoFramesOfItsParent) {
  const Camera camera = Make();
  const Camera playing = OpenPull();
  ASSERT_NE(NextFrame(playing), nullptr);
  ASSERT_TRUE(Eventually([] { return Counters().published > Counters().delivered; }));
  LogLines();
  const pid_t child = fork();
  if (child == 0) {
    Frame frame;
    const bool is_refused = !playing->PullFrame(frame, false) && !camera->Open() &&
                            LogLines()[0] == Refusal("the connection is the parent process's") &&
                            quill::stream::VBRC(nullptr).Data() == nullptr;
    _exit(is_refused ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Counters().held, 0U) << "the child has counted in the parent's ring";
  EXPECT_NE(NextFrame(playing), nullptr) << "the parent's stream goes on";
}

}  // namespace
}  // namespace tessel::tests
