// The Linux-side elements: what a pipeline is made of.
#pragma once

#include <memory>
#include <vector>

#include "Media.h"
#include "quill/Service.h"
#include "Session.h"

namespace quill::stream {

// Client's thread. A pipeline opens its elements in data-flow order and starts them against it.
class Element : public virtual Service {
 public:
  // The element in front of this one; borrows for its life.
  void Attach(Element& upstream) { _upstream = &upstream; }
  // What it delivers, once open; null before and for elements at the end.
  virtual std::shared_ptr<Session> Output() const { return nullptr; }
  virtual std::shared_ptr<Media> OutputMedia() const { return nullptr; }
  // All elements of the pipeline play now.
  virtual void Playing() {}

 protected:
  Element* Upstream() const { return _upstream; }

 private:
  Element* _upstream = nullptr;
};

// "ShmSource": the Linux end of a session, and the owner of the application over there. Parameters:
// either session_name, apphd (the application's handle) and init, for one that exists already; or
// connect={type=pipeline,serialize={chain},name=N} and link, for one that is made whenever this is
// opened: the sink at the end of that chain gets the session N.
class ShmSource : public Element {
 public:
  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Start() override;
  bool Stop() override;
  bool Close() override;
  std::shared_ptr<Session> Output() const override { return _session; }
  std::shared_ptr<Media> OutputMedia() const override { return _media; }

 protected:
  ~ShmSource() override;

 private:
  bool ReadConnection(const base::AttrSet& connection);
  bool Connect();
  bool FindSession();
  bool Command(const char* command, const char* status, base::AttrSet& answer) const;
  void Leave();

  std::string _session_name;
  std::string _application;  // description of the one to be made; empty: it exists already
  std::string _handle;       // as the real-time side wrote it; empty when it is gone
  std::shared_ptr<FarSide> _far_side;
  std::shared_ptr<Session> _session;
  std::shared_ptr<Media> _media;
};

// "pipeline": a chain of elements, given as layout=.
class Pipeline : public virtual Service {
 public:
  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Start() override;
  bool Stop() override;
  bool Close() override;
  void afterStatusUp(Status target) override;

 private:
  using Step = bool (*)(Service&);
  bool Up(const std::vector<Service*>& order, Step step, Step undo) const;
  bool Down(const std::vector<Service*>& order, Step step) const;
  std::vector<Service*> InFlow() const;
  std::vector<Service*> AgainstFlow() const;
};

// "Application": holds one description, given as layout=, and is driven by texts: writing
// "statusup" or "statusdown" moves it at least up or down to the status named; "status" reads where
// it is.
class Application : public virtual Pipeline {
 public:
  Application();
  bool configure(base::AttrSet& set) override;
};

}  // namespace quill::stream
