#include <TVServiceSubscriber.h>

#include "../main_loop_calls.h"
#include "../presentation.h"
#include "../service_table.h"
#include "join.h"
#include "modules.h"

namespace {

using Bytes = std::vector<unsigned char>;

class ServiceList : public Module {
public:
  explicit ServiceList(ModuleContext context) : screen_(context.screen) {
    self_ = this;
    tv_.SetSectionCallback(SectionCame);
    TCSectionFilterCriteriaHelper filter;
    filter.pid = kServiceTablePid;
    filter.match = {kServiceTableId};
    filter.mask = {0xff};
    int handle = 0; // never used: the subscription lasts as long as the viewer
    tv_.SubscribeSectionByFilter(kServiceTablePid, filter, handle);
  }
  ~ServiceList() override { self_ = nullptr; }

private:
  // The service calls this on its own thread, without user data, and keeps the section only during the call.
  static void SectionCame(bool valid, unsigned short size, unsigned char *data, int) {
    if (valid) {
      self_->calls_.Post([self = self_, section = Bytes(data, data + size)] {
        const std::vector<std::string> names = ServiceNames(section);
        self->screen_.Show("services", lumio::Join(names, ", "), {names});
      });
    }
  }

  static ServiceList *self_; // set while the service may call

  Presentation &screen_;
  CTVServiceSubscriber tv_{"service list"};
  MainLoopCalls calls_;
};

ServiceList *ServiceList::self_ = nullptr;

} // namespace

std::unique_ptr<Module> MakeServiceList(ModuleContext context) { return std::make_unique<ServiceList>(context); }
