// Messages between the two sides: their borders, what each side makes of nonsense, and of silence.
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Connection.h"
#include "Doorbell.h"
#include "Fixture.h"
#include "OddFarSide.h"
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

TEST(Wire, KeepsMessagesApartAndWhole) {
  const Ends ends;
  const std::size_t most = link::kMaxMessageBytes - 8;
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{5000}, most}) {
    const WireMessage sent = {WireMessage::kRequest, static_cast<std::uint32_t>(size) + 7,
                              std::string(size, 'x')};
    ASSERT_EQ(SendMessage(ends.near.Get(), sent), SendResult::kSent);
    ASSERT_EQ(SendMessage(ends.near.Get(), {WireMessage::kEvent, 0, "behind"}), SendResult::kSent);
    for (const WireMessage& expected : {sent, WireMessage{WireMessage::kEvent, 0, "behind"}}) {
      WireMessage got;
      std::vector<UniqueFd> fds;
      ASSERT_TRUE(ReceiveMessage(ends.far.Get(), got, fds));
      EXPECT_EQ(std::tie(got.kind, got.number, got.text),
                std::tie(expected.kind, expected.number, expected.text));
    }
  }
  const WireMessage too_long = {WireMessage::kRequest, 1, std::string(most + 1, 'x')};
  EXPECT_EQ(SendMessage(ends.near.Get(), too_long), SendResult::kTooLong);
  EXPECT_EQ(SendMessage(ends.near.Get(), {}, std::vector<int>(9, 0)), SendResult::kTooLong);
}

TEST(Wire, PassesDescriptors) {
  const Ends ends;
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  const UniqueFd read_end(pipe_fds[0]);
  {
    const UniqueFd write_end(pipe_fds[1]);
    const std::vector<int> many(8, write_end.Get());
    ASSERT_EQ(SendMessage(ends.near.Get(), {WireMessage::kRequest, 1, "take"}, many),
              SendResult::kSent);
  }
  WireMessage got;
  std::vector<UniqueFd> fds;
  ASSERT_TRUE(ReceiveMessage(ends.far.Get(), got, fds));
  ASSERT_EQ(fds.size(), 8U);
  char letter = 0;
  EXPECT_EQ(fcntl(fds[7].Get(), F_GETFD), FD_CLOEXEC) << "no other program gets it";
  EXPECT_EQ(write(fds[7].Get(), "z", 1), 1);
  EXPECT_EQ(read(read_end.Get(), &letter, 1), 1);
  fds.clear();
  EXPECT_EQ(read(read_end.Get(), &letter, 1), 0) << "nobody else has them";
}

TEST(Wire, AReceiverThatDoesNotReadIsBusyNotGone) {
  const Ends ends;
  const timeval timeout = {.tv_sec = 0, .tv_usec = 1000};
  ASSERT_EQ(setsockopt(ends.near.Get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout), 0);
  const WireMessage large = {WireMessage::kRequest, 1, std::string(100000, 'x')};
  SendResult result = SendResult::kSent;
  for (int i = 0; i < 1000 && result == SendResult::kSent; ++i) {
    result = SendMessage(ends.near.Get(), large);
  }
  EXPECT_EQ(result, SendResult::kBusy);
}

TEST(Wire, ReadsNonsenseAsAnEventWithoutText) {
  Ends ends;
  WireMessage got;
  std::vector<UniqueFd> fds;
  const std::string huge(link::kMaxMessageBytes + 100, 'x');
  for (const std::string& raw :
       {std::string("abc"), huge, std::string("\3\0\0\0\0\0\0\0a\0b", 11)}) {
    ASSERT_EQ(send(ends.near.Get(), raw.data(), raw.size(), 0), static_cast<ssize_t>(raw.size()));
    got.text = "old";
    ASSERT_TRUE(ReceiveMessage(ends.far.Get(), got, fds));
    EXPECT_TRUE(got.kind == WireMessage::kEvent && got.number == 0 && got.text.empty());
  }
  ends.near = UniqueFd();
  EXPECT_FALSE(ReceiveMessage(ends.far.Get(), got, fds));
  EXPECT_EQ(SendMessage(ends.far.Get(), {}), SendResult::kGone) << "and no signal";
}

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
  std::string error;
  const std::unique_ptr<link::SharedWindow> window = link::SharedWindow::Create(1 << 20, error);
  const std::string hello = "cmd=hello,version=1,base=0x100000";

 private:
  Ends _ends;
  std::uint32_t _number = 0;
  rtos::RealTimeSide _side{OddElements()};
  rtos::Connection _connection{std::move(_ends.far), _side};
  std::thread _thread{[this] { _connection.Serve(); }};
};

TEST_F(Served, HelloComesFirstAndOnce) {
  const UniqueFd loose(memfd_create("loose", 0));
  EXPECT_EQ(Ask("cmd=tesselMedia,object_base=0x1"), "error=a command before hello");
  EXPECT_EQ(Ask(hello), "error={hello takes one window, once}");
  EXPECT_EQ(Ask("cmd=hello,version=2,base=0x100000", {window->Fd()}),
            "error=this side speaks version 1");
  EXPECT_EQ(Ask(hello, {loose.Get()}),
            "error=the shared window is not sealed: its size could change while it is mapped");
  EXPECT_EQ(Ask(hello, {window->Fd()}), "pid=" + std::to_string(getpid()));
  EXPECT_EQ(Ask(hello, {window->Fd()}), "error={hello takes one window, once}");
}

TEST_F(Served, AnswersEveryBadRequestWithItsReason) {
  ASSERT_TRUE(Ask(hello, {window->Fd()}).starts_with("pid="));
  // "@" stands for a creation, "$" for a sink
  const std::pair<const char*, const char*> rows[] = {
      {"}{", "refused; the reason cannot be written"},
      {"a", "{position 1: expected \"=\" after the key}"},
      {"", "no command \"\""},
      {"cmd=fly", "no command \"fly\""},
      {"cmd=tesselMedia", "{no application object_base=}"},
      {"cmd=tesselStatus,object_base=0x9,status=play", "{no application object_base=0x9}"},
      {"cmd=tesselDestroy,object_base=zz", "{no application object_base=zz}"},
      {"cmd=tesselCreate", "{blocks= or sessions= cannot be read}"},
      {"cmd=tesselCreate,blocks=,sessions={s={offset=4096,size=8192}}",
       "{blocks= or sessions= cannot be read}"},  // no bells came with it
      {"cmd=tesselCreate,blocks={1048576=744},sessions=",
       "{blocks: 1048576=744 lies outside the window}"},
      {"cmd=tesselCreate,blocks={18446744073709551615=744},sessions=",
       "{blocks: 18446744073709551615=744 lies outside the window}"},
      {"cmd=tesselCreate,blocks={-1=744},sessions=", "{blocks: -1=744 lies outside the window}"},
      {"@", "{an application without layout=}"},
      {"@,layout={type=Application,layout={A}}", "an application that holds no pipeline"},
      {"@,layout={type=pipeline,layout={A+}}", "position 2: expected an element"},
      {"@,layout={type=pipeline,layout={lens}}", "no element \"lens\""},
      {"@,layout={type=pipeline,layout={$}}",
       "a chain that does not begin with a source and end with a sink"},
      {"@,layout={type=pipeline,layout={pv-yuv-src-adv}}",
       "a chain that does not begin with a source and end with a sink"},
      {"@,layout={type=pipeline,layout={pv-yuv-src-adv+$}}",
       "{element \"ShmSink\": session_name=s is no session handed out}"},
      {"@,layout={type=pipeline,layout={pv-yuv-src-adv+ShmSink}}",
       "{element \"ShmSink\": no session_name=}"},
  };
  const auto ask = [this](const std::string& text) {
    const std::string create = "cmd=tesselCreate,blocks={4096=744},sessions=";
    return Ask(Fill(Fill(text, '@', create), '$', "ShmSink:session_name=s"));
  };
  for (const auto& [request, answer] : rows) {
    EXPECT_EQ(ask(request), std::string("error=") + answer) << request;
  }
  // 0x101000 is one, of 744 bytes.
  for (const std::string block :
       {"0x100000", "0x101004", "0x100fff", "0x1012e8", "0x102000", "0x0"}) {
    EXPECT_EQ(ask("@,layout={type=pipeline,layout={pv-yuv-src-adv:vbrc=" + block + "+$}}"),
              "error={element \"pv-yuv-src-adv\": vbrc=" + block + " lies in no block handed out}");
  }
  EXPECT_EQ(ask("@,layout={type=pipeline,layout={pv-yuv-src-adv:vbrc=0x101000+$}}"),
            "error={element \"ShmSink\": session_name=s is no session handed out}");
}

TEST_F(Served, RefusesSessionAreasThatDoNotFit) {
  ASSERT_TRUE(Ask(hello, {window->Fd()}).starts_with("pid="));
  const link::Doorbell bell = link::Doorbell::Create();
  const auto create = [&](const std::string& area) {
    return Ask("cmd=tesselCreate,blocks=,sessions={s={" + area +
                   "}},layout={type=pipeline,layout={pv-yuv-src-adv+ShmSink:session_name=s}}",
               {bell.Fd(), bell.Fd()});
  };
  for (const char* area : {"offset=1048576,size=4096", "offset=4096,size=1048576", "offset=4096",
                           "offset=4097,size=65536", "offset=18446744073709551552,size=65536"}) {
    EXPECT_EQ(create(area),
              std::string("error={sessions: s={") + area + "} lies outside the window}");
  }
  EXPECT_EQ(create("offset=4096,size=4095"),
            "error={element \"ShmSink\": session_name=s is no session handed out}");
  EXPECT_EQ(create("offset=4096,size=8192"),
            "error={element \"ShmSink\": session_name=s has no room for two units of 1000 bytes}");
  EXPECT_TRUE(create("offset=4096,size=65536").starts_with("object_base=0x"));
}

TEST_F(Served, SteersOnlyWhatCanBeSteeredByDescriptorsThatCannotHurtIt) {
  ASSERT_TRUE(Ask(hello, {window->Fd()}).starts_with("pid="));
  const std::string chain =
      ",layout={type=pipeline,layout={pv-yuv-src-adv+h264-encoder-dma+ShmSink:session_name=s}}";
  const std::string create = "cmd=tesselCreate,blocks=,sessions={s={offset=4096,size=65536}}";
  int pipes[2];
  ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
  const UniqueFd out(pipes[0]);
  const UniqueFd in(pipes[1]);
  const link::Doorbell bell = link::Doorbell::Create();
  for (const auto& [frame, room] : {std::pair(in.Get(), bell.Fd()), {bell.Fd(), in.Get()}}) {
    EXPECT_EQ(Ask(create + chain, {frame, room}),
              "error={sessions: a name longer than 255, or a descriptor that is no eventfd}");
  }
  ASSERT_TRUE(Ask(create + chain, {bell.Fd(), bell.Fd()}).starts_with("object_base=0x"));
  const std::string list = Ask("cmd=tesselList");
  ASSERT_TRUE(list.starts_with("streams={1={chain=")) << list;
  const std::pair<const char*, const char*> rows[] = {
      {"tesselRequest,stream=1,word=keyframe_req", "the stream has no key frames to ask for"},
      {"tesselRequest,stream=1,word=trigger_req", "the stream is not one of single frames"},
      {"tesselRequest,stream=1,word=qp", "\"qp\" is nothing that can be requested"},
      {"tesselRequest,stream=1", "{tesselRequest takes stream= and word=}"},
      {"tesselSet,stream=1,word=qp,value=3", "the stream has no rate control"},
      {"tesselSet,stream=1,word=frame_count,value=3", "\"frame_count\" is nothing that can be set"},
      {"tesselSet,stream=2,word=qp,value=3", "no stream 2"},
      {"tesselSet,stream=1,word=qp", "{tesselSet takes stream=, word= and value=}"},
  };
  for (const auto& [request, answer] : rows) {
    EXPECT_EQ(Ask(std::string("cmd=") + request), std::string("error=") + answer);
  }
}

// Of all streams together the descriptions are longer than a message.
TEST_F(Served, ListsManyStreamsInPages) {
  ASSERT_TRUE(Ask(hello, {window->Fd()}).starts_with("pid="));
  const link::Doorbell bell = link::Doorbell::Create();
  constexpr int kStreams = 400;
  const std::string name(250, 'n');
  for (int i = 0; i < kStreams; ++i) {
    const std::string answer =
        Ask("cmd=tesselCreate,blocks=,sessions={" + name +
                "={offset=4096,size=65536}},layout={type=pipeline,layout={pv-yuv-src-adv+ShmSink:"
                "session_name=" +
                name + "}}",
            {bell.Fd(), bell.Fd()});
    ASSERT_TRUE(answer.starts_with("object_base=0x")) << answer;
  }
  int next_number = 1;
  int pages = 0;
  for (std::string from; pages == 0 || (!from.empty() && pages < 10); ++pages) {
    const AttrSet page(Ask("cmd=tesselList" + (from.empty() ? "" : ",from=" + from)).c_str());
    ASSERT_NE(page.Get("streams"), nullptr);
    const AttrSet streams(page.Get("streams"));
    ASSERT_FALSE(streams.Pairs().empty());
    for (const auto& [number, report] : streams.Pairs()) {
      EXPECT_EQ(number, std::to_string(next_number++));
      EXPECT_EQ(AttrSet(report.c_str()).Get("session"), name);
    }
    from = page.Get("next") == nullptr ? "" : page.Get("next");
  }
  EXPECT_EQ(next_number, kStreams + 1);
  EXPECT_GT(pages, 1);
}

class CommandWire : public StreamTest {
 protected:
  static std::string Refusal(const std::string& reason) {
    return "RunShm0Command:\t!far_side->Run(args)," + reason;
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

TEST_F(CommandWire, ReadsTheListOfStreamsPageByPageUnlessItGoesInCircles) {
  for (const std::string next : {"", ",next=0x5", ",next=0x4", ",next=x"}) {
    UseOddFarSide("pages" + next);
    AttrSet args;
    RunFarSide("start it", args);
    std::vector<quill::host::BoardStream> streams;
    std::string error;
    const bool is_listed = quill::host::ListBoard(streams, error);
    EXPECT_EQ(is_listed, next.empty());
    std::string text;
    for (const auto& stream : streams) text += std::to_string(stream.id) + stream.state + " ";
    EXPECT_EQ(text, is_listed ? "1play 2ready 5ended " : "");
    EXPECT_EQ(error, is_listed ? "" : "the real-time side's list of streams does not end");
    KillFarSide();
  }
}

TEST_F(CommandWire, AnswersThatAreNoneFailTheRequestAlone) {
  UseOddFarSide("garbles");
  for (int round = 0; round < 3; ++round) {
    AttrSet args;
    EXPECT_FALSE(RunFarSide("anything", args));
    EXPECT_EQ(LogLines(), Lines{Refusal("an answer that cannot be read")});
    EXPECT_EQ(args.Get("object_base"), nullptr);
  }
  EXPECT_NE(quill::host::FarSideProcess(), 0);
}

TEST_F(CommandWire, ALateAnswerIsDropped) {
  UseOddFarSide("delays");
  AttrSet slow("timeout=20000000");
  EXPECT_FALSE(RunFarSide("slow", slow));
  EXPECT_EQ(LogLines(), Lines{Refusal("slow: no answer within 20 ms")});
  AttrSet next;
  EXPECT_TRUE(RunFarSide("next", next));
  EXPECT_STREQ(next.Get("who"), "prompt");
  EXPECT_EQ(slow.Get("who"), nullptr);
}

TEST_F(CommandWire, AnApplicationThatComesTooLateIsDestroyed) {
  UseOddFarSide("delays");
  AttrSet create("layout={type=pipeline,layout={ShmSink:session_name=s}},timeout=20000000");
  const auto used_before = quill::host::GetWindowUse().used_bytes;
  EXPECT_FALSE(RunFarSide("tesselCreate", create));
  EXPECT_GT(quill::host::GetWindowUse().used_bytes, used_before) << "it may be written to";
  AttrSet next;
  EXPECT_TRUE(RunFarSide("next", next));
  EXPECT_STREQ(next.Get("tesselDestroy"), "0x7");
  EXPECT_EQ(quill::host::GetWindowUse().used_bytes, used_before);
}

TEST_F(CommandWire, AProgramThatEndsAtOnceOrIsMissingFailsTheOpening) {
  const Camera camera = Make();
  UseOddFarSide("exits");
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines()[0], Refusal("the real-time side is gone"));
  Use([](auto& options) { options.far_side_program = "/nowhere/tessel-rtos"; });
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines()[0], Refusal("cannot start /nowhere/tessel-rtos: No such file or directory"));
  Use([](auto& options) { options.far_side_program.clear(), options.far_side_arguments.clear(); });
  EXPECT_TRUE(camera->Open()) << "the next command starts afresh";
}

TEST_F(CommandWire, AStoppedProgramFailsTheCommandInTime) {
  AttrSet args;
  RunFarSide("start it", args);
  EXPECT_EQ(getpgid(quill::host::FarSideProcess()), quill::host::FarSideProcess())
      << "Ctrl-C is for the client alone";
  kill(quill::host::FarSideProcess(), SIGSTOP);
  LogLines();
  EXPECT_FALSE(Make()->Open());
  EXPECT_EQ(LogLines()[0], Refusal("tesselCreate: no answer within 1000 ms"));
}

// Runs `child` after a fork; 0 when it returned true.
int InChild(const std::function<bool()>& child) {
  const pid_t process = fork();
  if (process == 0) _exit(child() ? 0 : 1);
  int status = -1;
  waitpid(process, &status, 0);
  return status;
}

TEST_F(CommandWire, AForkedChildGetsAnErrorAndNoFramesOfItsParent) {
  const Camera camera = Make();
  const Camera playing = OpenPull();
  ASSERT_NE(NextFrame(playing), nullptr);
  ASSERT_TRUE(Eventually([] { return Counters().made > Counters().delivered; }));
  EXPECT_EQ(InChild([&] {
              LogLines();
              Frame frame;
              return !playing->PullFrame(frame, false) && !camera->Open() &&
                     LogLines()[0] == Refusal("the connection is the parent process's") &&
                     quill::stream::VBRC(nullptr).Data() == nullptr;
            }),
            0);
  EXPECT_EQ(Counters().held, 0U) << "the child has counted in the parent's ring";
  EXPECT_NE(NextFrame(playing), nullptr) << "the parent's stream goes on";
}

}  // namespace
}  // namespace tessel::tests
