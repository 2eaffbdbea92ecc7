// The first element of a pipeline: packets from the real-time side.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "messages/Applications.h"
#include "PipelineElement.h"
#include "RtosConnection.h"

namespace quill::stream {

// "ShmSource": the Linux end of a session, and the owner of its application on the real-time side.
// Parameters: either session_name, apphd (the application's handle) and init, for one that exists
// already; or connect={type=pipeline,serialize={chain},name=N} and link, for one that is made
// whenever this is opened: the sink at the end of that chain gets the session N.
class ShmSource : public PipelineElement {
 public:
  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Start() override;
  bool Stop() override;
  bool Close() override;
  std::shared_ptr<Session> Output() const override { return _session; }
  std::shared_ptr<StreamMedia> OutputMedia() const override { return _media; }
  std::uint32_t RequestsBefore() const override { return _requests_before; }

 protected:
  ~ShmSource() override;

 private:
  bool ReadConnection(const base::AttrSet& connection);
  bool Connect();
  bool FindSession();
  template <typename Request>
  static bool Command(const Request& request, base::AttrSet& answer);
  bool ChangeStatus(tessel::link::Status status) const;
  bool FindMedia(base::AttrSet& description) const;
  void Leave();
  void ForEachBlock(const std::function<void(VbrcBlock&)>& act) const;

  std::string _session_name;
  std::string _application;  // description of the one to be made; empty: it exists already
  std::string _handle;       // as the real-time side wrote it; empty when it is gone
  std::shared_ptr<RtosConnection> _rtos;
  std::shared_ptr<Session> _session;
  std::vector<std::weak_ptr<const Window::Block>> _blocks;  // that steer the application
  std::uint32_t _requests_before = 0;
  std::shared_ptr<StreamMedia> _media;
};

}  // namespace quill::stream
