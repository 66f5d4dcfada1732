// The operations of the control plane in front of the real ones, which fail on demand. A member is
// a function whose first argument is its object.
#include "device/failing_parts.h"

#include <atomic>
#include <memory>
#include <new>

#include "config/config_manager.h"
#include "device/collection_entry.h"
#include "device/prof_job_handler.h"
#include "device/receiver.h"
#include "device/task_manager.h"

namespace tiv::test {

using Analysis::Rokt::Common::Config::ConfigManager;
using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::ProfJobHandler;
using analysis::rokt::device::Receiver;
using analysis::rokt::device::TaskManager;
using Transport = std::shared_ptr<analysis::rokt::transport::ITransport>;

namespace {

std::atomic<const char*> failing{""};

bool Fails(const char* operation) { return failing.load() == std::string(operation); }

constexpr int FAILURE = 7;

}  // namespace

FailingPart::FailingPart(const char* operation) { failing = operation; }
FailingPart::~FailingPart() { failing = ""; }

#define REAL_AND_WRAP(result, name, symbol, ...)          \
    result Real##name(__VA_ARGS__) asm("__real_" symbol); \
    result Wrap##name(__VA_ARGS__) asm("__wrap_" symbol)

#define CONFIG_MANAGER "_ZNK8Analysis4Rokt6Common6Config13ConfigManager"
#define DEVICE "_ZN8analysis4rokt6device"
#define TEXT "RKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
#define TRANSPORT "RKSt10shared_ptrINS0_9transport10ITransportEE"

REAL_AND_WRAP(std::string, GetInotifyDir, CONFIG_MANAGER "13GetInotifyDirB5cxx11Ev",
              const ConfigManager*);
REAL_AND_WRAP(std::string, GetPerfDataDir, CONFIG_MANAGER "14GetPerfDataDirB5cxx11Ej",
              const ConfigManager*, uint32_t);
REAL_AND_WRAP(int, InitReceiver, DEVICE "8Receiver4InitEi", Receiver*, int32_t);
REAL_AND_WRAP(int, InitTask, DEVICE "14ProfJobHandler4InitEi" TEXT TRANSPORT, ProfJobHandler*,
              int32_t, const std::string&, const Transport&);
REAL_AND_WRAP(int, UninitEntry, DEVICE "15CollectionEntry6UninitEv", CollectionEntry*);
REAL_AND_WRAP(int, UninitTasks, DEVICE "11TaskManager6UninitEv", TaskManager*);
REAL_AND_WRAP(void, ConnectionReset, DEVICE "11TaskManager15ConnectionResetE" TRANSPORT,
              TaskManager*, const Transport&);

std::string WrapGetInotifyDir(const ConfigManager* self) {
    return Fails("GetInotifyDir") ? "" : RealGetInotifyDir(self);
}

std::string WrapGetPerfDataDir(const ConfigManager* self, uint32_t devId) {
    return Fails("GetPerfDataDir") ? "" : RealGetPerfDataDir(self, devId);
}

int WrapInitReceiver(Receiver* self, int32_t devIndex) {
    return Fails("InitReceiver") ? FAILURE : RealInitReceiver(self, devIndex);
}

int WrapInitTask(ProfJobHandler* self, int32_t devIndex, const std::string& key,
                 const Transport& transport) {
    return Fails("InitTask") ? FAILURE : RealInitTask(self, devIndex, key, transport);
}

int WrapUninitEntry(CollectionEntry* self) {
    const int result = RealUninitEntry(self);
    return Fails("UninitEntry") ? FAILURE : result;
}

int WrapUninitTasks(TaskManager* self) {
    return Fails("UninitTasks") ? throw std::bad_alloc() : RealUninitTasks(self);
}

void WrapConnectionReset(TaskManager* self, const Transport& transport) {
    Fails("ConnectionReset") ? throw std::bad_alloc() : RealConnectionReset(self, transport);
}

}  // namespace tiv::test
