// What every object of the plug-in inherits from the host: properties, children, messages, status,
// class records, commands.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <tuple>

#include "common/StreamControl.h"
#include "Fixture.h"
#include "quill/Hash.h"
#include "quill/IClass.h"
#include "quill/Message.h"
#include "quill/object_proxy.h"
#include "quill/Service.h"

namespace tessel::tests {
namespace {

using namespace quill::base;
using quill::stream::Service;
using Status = quill::stream::IStatus::Status;

const std::string kRecords = "CreateObject:\t";

// A whole host object: a property of each kind, and a memory of the messages it got.
class Lamp : public Object {
 public:
  Lamp() {
    AddValue<int>("power", 40);
    AddValue<bool>("lit", false);
    AddValue<std::string>("text", "");
    AddProperty(std::make_unique<TProperty<int>>("hours", [](const object*, int& out) {
      out = 1000;
      return true;
    }));
    AddProperty(std::make_unique<TProperty<int>>(
        "level", [this](const object*, int& out) { return out = _level, true; },
        [this](object*, const int& in) { return in <= 10 && (_level = in, true); }));
  }
  bool configure(AttrSet& set) override {
    ++configured;
    owner_at_first = Parent();
    return Object::configure(set);
  }
  bool processMessage(Message& message) override {
    got += message.Text();
    return Object::processMessage(message) || takes;
  }
  std::string got;
  bool takes = false;
  int configured = 0;
  object* owner_at_first = nullptr;

 private:
  int _level = 1;
};

class HostObjects : public ::testing::Test {
 protected:
  HostObjects() { LogLines(); }
  ~HostObjects() override { lamp->Release(); }
  Lamp* Child(Lamp* owner, const char* name) const {
    AttrSet description("type=Lamp");
    description.Add("name", name);
    return dynamic_cast<Lamp*>(owner->create(description));
  }
  const IClass* const record = IClass::Find("Lamp", true) != nullptr
                                   ? IClass::Find("Lamp", true)
                                   : TClass<>::Enter<Lamp>("Lamp");
  Lamp* const lamp = dynamic_cast<Lamp*>(quill::host::CreateObject("Lamp", "power=60"));
};

TEST_F(HostObjects, PropertiesAreReachedByNameAndNumber) {
  Lines names;
  EXPECT_TRUE(lamp->getPropertyNameList(names));
  EXPECT_EQ(names, (Lines{"power", "lit", "text", "hours", "level"}));
  EXPECT_EQ(lamp->hasProperty("level"), 4);
  EXPECT_EQ(lamp->getPropertyInfo(4)->Name(), "level");
  EXPECT_EQ(lamp->hasProperty("Power"), -1);
  EXPECT_TRUE(lamp->getPropertyInfo(5) == nullptr && lamp->getPropertyInfo(-1) == nullptr);
  int power = 0;
  EXPECT_TRUE(lamp->get(0, &power, &typeid(int)) && power == 60);
  power = 25;
  EXPECT_TRUE(lamp->set(0, &power, &typeid(int)) && lamp->setString(1, "on"));
  const char* text = nullptr;
  EXPECT_TRUE(lamp->GetStr("power", text));
  EXPECT_STREQ(text, "25");
  EXPECT_EQ(lamp->setoradd("power", "bright"), -1);
  auto* proxy = new object_proxy(*lamp);
  EXPECT_EQ(proxy->setoradd("colour", "red"), 5);
  EXPECT_EQ(proxy->setoradd("colour", "blue"), 5);
  EXPECT_TRUE(proxy->SetStr("power", "5") && proxy->Get("power", power) && power == 5);
  proxy->Release();
  std::string colour;
  EXPECT_TRUE(lamp->getString(5, colour) && colour == "blue");
}

TEST_F(HostObjects, PropertyOfAnotherTypeIsRefusedAndNothingTouched) {
  long number = 7;
  EXPECT_FALSE(lamp->Get("power", number) || lamp->Get("nosuch", number));
  EXPECT_FALSE(lamp->Set("power", &number, &typeid(long)));
  EXPECT_FALSE(lamp->SetStr("power", "60W") || lamp->SetStr("hours", "1") ||
               lamp->SetStr("nosuch", "1") || lamp->SetStr("level", "11"));
  EXPECT_EQ(number, 7);
  int power = 0;
  EXPECT_TRUE(lamp->GetWithType("power", [&](const std::type_info& type) -> void* {
    return type == typeid(int) ? &power : nullptr;
  }));
  EXPECT_EQ(power, 60);
  EXPECT_FALSE(lamp->GetWithType("lit", [](const std::type_info&) { return nullptr; }));
}

TEST_F(HostObjects, TextIsTakenWholeOrNotAtAllAndComesOutTheSame) {
  ASSERT_TRUE(lamp->fromString("") &&
              lamp->fromString("name=desk,text={a=1,b={2}},lit=on,level=3"));
  for (const char* text : {"power=5,level=11", "hours=5", "power=5,enable=perhaps", "power=5,"}) {
    EXPECT_FALSE(lamp->fromString(text)) << text;
  }
  EXPECT_EQ(lamp->ToString(), "name=desk,power=60,lit=true,text={a=1,b={2}},level=3");
  EXPECT_EQ(LogLines(),
            (Lines{"fromAttrSet:\t!setString(id,value),level=11",
                   "fromAttrSet:\t!property,no such property: hours",
                   "ReadEnable:\t!ConvertToImpl(enable,enabled),enable=perhaps",
                   "fromString:\t!set.Parse(text),position 8: expected a pair after \",\""}));
  object* copy = lamp->Clone();
  EXPECT_EQ(copy->ToString(), lamp->ToString());
  EXPECT_NE(copy->ID(), lamp->ID());
  copy->Release();
}

TEST_F(HostObjects, ChildrenStandInOrderUntilRemoved) {
  Lamp* children[] = {Child(lamp, "a"), Child(lamp, "b"), Child(lamp, "c")};
  EXPECT_FALSE(lamp->addChild(children[0])) << "twice";
  EXPECT_TRUE(lamp->removeChild(children[1]));
  EXPECT_FALSE(lamp->removeChild(children[1]));
  EXPECT_TRUE(children[1]->Order() == -1 && children[1]->Parent() == nullptr);
  EXPECT_TRUE(children[2]->Order() == 1 && children[2]->Parent() == lamp);
  std::string names;
  EXPECT_FALSE(lamp->foreach ([&](object& child) {
    names += child.Name();
    return names != "a";  // ends the walk
  }));
  EXPECT_EQ(names, "a");
  EXPECT_TRUE(children[1]->Initialize("d", "spare", nullptr, lamp));
  EXPECT_TRUE(children[1]->HasKeyword("spare"));
  EXPECT_EQ(lamp->getChild(2), children[1]);
}

TEST_F(HostObjects, VisitMayReadAndChangeTheChildren) {
  for (const char* name : {"a", "b", "c"}) Child(lamp, name)->takes = true;
  std::string seen;
  auto walk = std::async(std::launch::async, [&] {
    return lamp->foreach ([&](object& child) {
      int others = 0;
      lamp->foreach ([&](object&) { return ++others > 0; });
      seen += child.Name() + std::to_string(others);
      EXPECT_TRUE(child.SendMessage("!", Orient::kSource, nullptr) || child.Order() == 0);
      object* first = lamp->getChild(0);
      if (lamp->removeChild(first)) first->Release();
      return true;
    });
  });
  if (walk.wait_for(kDeadline) != std::future_status::ready) {
    std::fputs("a visit waits for its own walk, and so would every destructor here\n", stderr);
    std::abort();
  }
  EXPECT_TRUE(walk.get());
  EXPECT_EQ(seen, "a3b2c1");
  EXPECT_EQ(lamp->getChild(0), nullptr);
}

TEST_F(HostObjects, EachWayOfCreatingConfiguresOnce) {
  AttrSet description("type=Lamp");
  object* const made[] = {record->CreateObject(nullptr), quill::host::CreateObject("Lamp", ""),
                          lamp->Clone(), lamp->create(description)};
  for (object* each : made) {
    auto* one = dynamic_cast<Lamp*>(each);
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->configured, 1) << "row " << &each - made;
    EXPECT_EQ(one->owner_at_first, each == made[3] ? lamp : nullptr);
    EXPECT_EQ(one->Class(), record);
    if (each != made[3]) each->Release();
  }
}

TEST_F(HostObjects, NullIsRefusedAndChangesNoObject) {
  AttrSet set("a=1");
  const char* const none = nullptr;
  const char* text = "kept";
  std::string string = "kept";
  bool flag = false;
  int number = 7;
  const std::string before = lamp->ToString();
  EXPECT_FALSE(set.Parse(none) || set.Add(none, "1") || set.Add("b", none) || set.Remove(none));
  EXPECT_FALSE(set.Get(none) != nullptr || set.Get(none, number));
  EXPECT_FALSE(ConvertToImpl(none, flag) || ConvertToImpl(none, string) || Hash(none) != 0);
  EXPECT_FALSE(lamp->GetStr(none, text) || lamp->SetStr(none, "1") || lamp->SetStr("power", none));
  EXPECT_FALSE(lamp->Get(none, number) || lamp->Get("power", &number, nullptr));
  EXPECT_FALSE(lamp->Get("power", nullptr, &typeid(int)) || lamp->GetWithType("power", nullptr));
  EXPECT_FALSE(lamp->Set(none, &number, &typeid(int)) || lamp->Set("power", &number, nullptr));
  EXPECT_FALSE(lamp->Set("power", nullptr, &typeid(int)) || lamp->setString(0, none));
  EXPECT_TRUE(lamp->hasProperty(none) == -1 && lamp->setoradd(none, "x") == -1);
  EXPECT_FALSE(lamp->setoradd("x", none) != -1 || lamp->AddProperty(nullptr));
  EXPECT_FALSE(lamp->HasKeyword(none) || lamp->fromString(none) || lamp->foreach (nullptr));
  EXPECT_FALSE(lamp->addChild(nullptr) || lamp->removeChild(nullptr));
  EXPECT_FALSE(lamp->SendMessage(none, Orient::kSink, nullptr));
  EXPECT_TRUE(lamp->Initialize(none, none, none, nullptr));
  EXPECT_EQ(lamp->ToString() + set.ToString(false), before + "a=1");
  EXPECT_EQ(text + string + std::to_string(number), "keptkept7");
  EXPECT_EQ(AttrSet(nullptr), AttrSet());
}

TEST_F(HostObjects, NullNamesNoClassCommandOrPlugin) {
  Factory& factory = Factory::Globle();
  AttrSet set;
  int number = 7;
  auto place = IClass::Globle().end();
  quill::stream::IStatus::Status status{};
  const auto announce = [](const char*) {};
  EXPECT_FALSE(factory.Run(nullptr, set) || factory.Call(nullptr, number));
  EXPECT_FALSE(factory.ReplaceCommand(nullptr, [](AttrSet&) { return true; }));
  EXPECT_FALSE(factory.ReplaceFunction<int()>(nullptr, [] { return 1; }));
  EXPECT_TRUE(IClass::Find(nullptr, true) == nullptr && IClass::Find(nullptr, place) == nullptr);
  EXPECT_EQ(IClass(nullptr, {}).Name(), "");
  EXPECT_TRUE(IClass::Register(nullptr) == nullptr && !IClass::UnRegister(nullptr));
  EXPECT_EQ(TClass<>::Register<bool>("TestAlias", nullptr, true), nullptr);
  EXPECT_EQ(ReflectAdd(nullptr, 0, "a", "b"), 0);
  EXPECT_EQ(ReflectAdd(announce, 0, nullptr, "b") + ReflectAdd(announce, 0, "a", nullptr), 0);
  EXPECT_FALSE(quill::stream::StatusFromName(nullptr, status));
  EXPECT_EQ(quill::host::CreateObject(nullptr, ""), nullptr);
  EXPECT_EQ(quill::host::CreateObject("Lamp", nullptr), nullptr);
}

TEST_F(HostObjects, CreatingReportsWhatIsWrong) {
  for (const char* text :
       {"", "type=Chandelier", "type=FuncSink", "type=Lamp,power=x", "type=Lamp,pover=1"}) {
    AttrSet description(text);
    EXPECT_EQ(lamp->create(description), nullptr) << text;
  }
  EXPECT_EQ(lamp->getChild(0), nullptr);
  EXPECT_EQ(quill::host::CreateObject("Lamp", "pover=1"), nullptr);
  EXPECT_EQ(quill::host::CreateObject("Chandelier", ""), nullptr);
  EXPECT_EQ(
      LogLines(),
      (Lines{"create:\t!type,a description without type=", "create:\t!record,no class: Chandelier",
             kRecords + "!constructor,needs constructor arguments, which an alias binds: FuncSink",
             "fromAttrSet:\t!setString(id,value),power=x",
             "fromAttrSet:\t!property,no such property: pover",
             "fromAttrSet:\t!property,no such property: pover",
             "CreateObject:\t!record,no class: Chandelier"}));
}

TEST_F(HostObjects, LayoutAdjustSetsChildrenByName) {
  const Lamp* left = Child(lamp, "left");
  const Lamp* right = Child(lamp, "right");
  AttrSet good("right={power=1},left={power=2}");
  EXPECT_TRUE(lamp->layoutAdjust(good));
  EXPECT_EQ(left->ToString(), "name=left,power=2,lit=false,text=,level=1");
  EXPECT_EQ(right->ToString(), "name=right,power=1,lit=false,text=,level=1");
  for (const char* text : {"middle={power=3}", "left={power=x}", "left=power"}) {
    AttrSet bad(text);
    EXPECT_FALSE(lamp->layoutAdjust(bad)) << text;
  }
}

// A taker of -1 is none; the last column has a letter for each object that saw the message.
TEST_F(HostObjects, MessagesGoTheirWayUntilAnObjectTakesThem) {
  Lamp* all[] = {lamp, Child(lamp, "a"), Child(lamp, "b"), Child(lamp, "c"), nullptr};
  all[4] = Child(all[2], "under b");
  const std::tuple<Orient::EOrient, int, int, const char*> rows[] = {
      {Orient::kSink, 1, -1, "abc"},      {Orient::kSink, 2, -1, "bc"},
      {Orient::kSink, 1, 2, "ab"},        {Orient::kSource, 3, -1, "ab"},
      {Orient::kSource, 3, 2, "b"},       {Orient::kSource, 1, -1, ""},
      {Orient::kChildren, 0, -1, "abcu"}, {Orient::kChildren, 0, 4, "abu"},
      {Orient::kParent, 4, -1, "lb"},     {Orient::kParent, 4, 2, "b"},
      {Orient::kParent, 0, -1, ""},
  };
  for (const auto& [way, sender, taker, seen] : rows) {
    for (Lamp* each : all) {
      each->got.clear();
      each->takes = taker >= 0 && each == all[taker];
    }
    EXPECT_EQ(all[sender]->SendMessage("!", way, nullptr), taker >= 0);
    std::string got;
    for (int i = 0; i < 5; ++i) got += all[i]->got.empty() ? "" : std::string(1, "labcu"[i]);
    EXPECT_EQ(got, seen) << way << " from " << sender;
  }
}

// What no class of the plug-in keeps as it is.
TEST_F(HostObjects, StreamControlSendsToItsChildrenAndHearsThem) {
  auto* control = new api::streaming::common::StreamControl;
  std::string heard;
  control->RegisterMessageCallback([&](const char*) { return heard += "replaced", true; });
  control->RegisterMessageCallback([&](const char* text) {
    heard += text;
    return heard == "hello";
  });
  AttrSet description("type=Lamp");
  auto* child = dynamic_cast<Lamp*>(control->create(description));
  EXPECT_TRUE(child->SendMessage("hello", Orient::kParent, nullptr));
  EXPECT_FALSE(child->SendMessage("again", Orient::kParent, nullptr));
  EXPECT_EQ(heard, "helloagain");
  EXPECT_FALSE(control->SendMessage("down"));
  child->takes = true;
  EXPECT_TRUE(control->SendMessage("under"));
  EXPECT_EQ(child->got, "downunder");
  control->Release();
}

// Notes which transitions were called; the one named in `fails` fails.
class Steps : public Service {
 public:
  bool Open() override { return Do("Open"); }
  bool Start() override { return Do("Start"); }
  bool Pause() override { return Do("Pause"); }
  bool Resume() override { return Do("Resume"); }
  bool Stop() override { return Do("Stop"); }
  bool Close() override { return Do("Close"); }
  bool StartToPause() override { return Do("StartToPause"); }
  bool StopFromPause() override { return Do("StopFromPause"); }
  void afterStatusUp(Status) override { done += "+"; }
  void afterStatusDown(Status) override { done += "-"; }
  std::string done;
  std::string fails;

 private:
  bool Do(const char* step) {
    done += step;
    return fails != step;
  }
};

TEST(StatusMachine, GoesStepByStepAndStopsAtAFailure) {
  const std::tuple<Status, Status, const char*, const char*> rows[] = {
      // and the step that fails
      {Status::kNull, Status::kPause, "", "Open+Start+Pause+"},
      {Status::kReady, Status::kPause, "", "StartToPause+"},
      {Status::kReady, Status::kPause, "StartToPause", "StartToPause+"},
      {Status::kPause, Status::kPlay, "", "Resume-"},
      {Status::kPause, Status::kNull, "", "StopFromPause-Close-"},
      {Status::kPlay, Status::kNull, "", "Stop-Close-"},
      {Status::kPlay, Status::kNull, "Stop", "Stop-"},
      {Status::kNull, Status::kPlay, "Open", "Open+"},
      {Status::kPlay, Status::kPlay, "", ""},
  };
  for (const auto& [from, to, fails, done] : rows) {
    auto* steps = new Steps;
    ASSERT_TRUE(steps->StatusChange(from));
    steps->done.clear();
    steps->fails = fails;
    EXPECT_EQ(steps->StatusChange(to), *fails == 0) << done;
    EXPECT_EQ(steps->done, done);
    EXPECT_EQ(steps->CurrStatus() == to, *fails == 0) << done;
    steps->fails.clear();
    steps->Release();
  }
}

// A class whose constructor takes an argument.
class Switch : public Object {
 public:
  explicit Switch(bool on) {
    if (!on) throw std::runtime_error("no light");
    AddValue<bool>("on", on);
  }
};

// The tag of each record, freed, adds its number.
TEST(ClassRecords, RecordsAndTagsLiveAsLongAsAliasesAndObjectsNeedThem) {
  int freed = 0;
  int tags[] = {1, 10, 100};
  const auto free = [&freed](void* tag) { freed += *static_cast<int*>(tag); };
  IClass* record = TClass<bool>::Enter<Switch>("TestSwitch");
  record->Tags(&tags[0], &typeid(int), free).Tags(&tags[1], &typeid(int), free);
  EXPECT_EQ(freed, 1) << "replaced";
  IClass* alias = TClass<>::Register<bool>("TestSwitchOn", "TestSwitch", true);
  EXPECT_EQ(alias->Tag<int>(), &tags[1]);
  EXPECT_EQ(alias->Tag<long>(), nullptr);
  alias->Tags(&tags[2], &typeid(int), free);
  EXPECT_TRUE(IClass::UnRegister("TestSwitch") && !IClass::UnRegister("TestSwitch"));
  EXPECT_EQ(freed, 1) << "the alias constructs with it";
  object* made = alias->CreateObject(nullptr);
  EXPECT_EQ(made->ToString(), "on=true");
  EXPECT_TRUE(IClass::UnRegister("TestSwitchOn"));
  EXPECT_EQ(made->Class()->Name(), "TestSwitchOn") << "the object reads it";
  object* copy = made->Clone();
  made->Release();
  EXPECT_EQ(freed, 1);
  copy->Release();
  EXPECT_EQ(freed, 111);
}

TEST(ClassRecords, AliasNeedsANameAndAClassThatFits) {
  IClass* empty = IClass::Register(new IClass("TestEmpty", {}));
  EXPECT_EQ(IClass::Register(empty), empty) << "again";
  std::list<IClass*>::iterator place;
  EXPECT_EQ(IClass::Find("TestEmpty", place), empty);
  EXPECT_EQ(*place, empty);
  EXPECT_EQ(IClass::Find("TestNothing", place), nullptr);
  EXPECT_EQ(place, IClass::Globle().end());
  TClass<>::Enter<Lamp>("TestPlain");
  LogLines();
  EXPECT_EQ(empty->CreateObject(nullptr), nullptr);
  EXPECT_EQ(TClass<>::Register<bool>(nullptr, "TestSwitch", true), nullptr);
  for (const char* base : {"TestNothing", "TestPlain", "TestEmpty"}) {
    EXPECT_EQ(TClass<>::Register<bool>("TestOn", base, true), nullptr) << base;
  }
  const std::string misfit = "base/reflect/TClass/#/init:\t!cl";
  EXPECT_EQ(LogLines(), (Lines{kRecords + "!_creator,a record that creates nothing: TestEmpty",
                               "base/reflect/TClass/#/Register:\t!name", misfit, misfit, misfit}));
  // Of several records with one name the first that fits is bound.
  auto* described = new TClass<bool>("TestEmpty", {});
  IClass::Register(&described->Describe<Switch>());
  const IClass* alias = TClass<>::Register<bool>("TestOn", "TestEmpty", true);
  EXPECT_EQ(alias->Base(), described);
  for (const char* name : {"TestOn", "TestEmpty", "TestEmpty", "TestPlain"}) {
    EXPECT_TRUE(IClass::UnRegister(name));
  }
}

TEST(ClassRecords, ConstructorThatThrowsCreatesNothing) {
  LogLines();
  TClass<bool>::Enter<Switch>("TestSwitch");
  const IClass* broken = TClass<>::Register<bool>("TestBroken", "TestSwitch", false);
  EXPECT_EQ(broken->CreateObject(nullptr), nullptr);
  EXPECT_EQ(LogLines(), (Lines{"Construct:\t!_creator(arguments),"
                               "TestBroken: no light",
                               kRecords + "!made,TestBroken"}));
  EXPECT_TRUE(IClass::UnRegister("TestBroken") && IClass::UnRegister("TestSwitch"));
}

TEST(Commands, FailWhenTheyThrowOrAreMissing) {
  const auto fail = [](AttrSet&) -> bool { throw std::runtime_error("no power"); };
  Factory::Globle().ReplaceCommand("test", fail);
  LogLines();
  AttrSet set;
  EXPECT_FALSE(Factory::Globle().Run("test", set));
  EXPECT_TRUE(Factory::Globle().ReplaceCommand("test", nullptr));
  EXPECT_FALSE(Factory::Globle().Run("test", set));
  EXPECT_EQ(LogLines(),
            (Lines{"Run:\t!found(args),test: no power", "Run:\t!command,no command: test"}));
}

TEST(Commands, FunctionsAreCalledWithTheirOwnTypesOnly) {
  Factory& factory = Factory::Globle();
  factory.ReplaceFunction<int(int)>("twice", [](int x) { return 2 * x; });
  int result = 0;
  long other = 5;
  EXPECT_TRUE(factory.Call("twice", result, 21) && result == 42);
  EXPECT_FALSE(factory.Call("twice", other, 21) || factory.Call("twice", result));
  EXPECT_EQ(other, 5);
  EXPECT_EQ(factory.ReplaceFunction<int(int)>("twice", nullptr)(4), 8);
  EXPECT_FALSE(factory.Call("twice", result, 1));
}

}  // namespace
}  // namespace tessel::tests
