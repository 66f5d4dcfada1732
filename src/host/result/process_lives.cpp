// Lives of a process id.
#include "host/result/process_lives.h"

#include <algorithm>

#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

// A process id comes round after tens of thousands of others; more lives than these are damage.
constexpr size_t MAX_LIVES = 4096;

}  // namespace

void ProcessLives::Include(Life& life, uint64_t timeNs) {
    life.firstNs = std::min(life.firstNs, timeNs);
    life.lastNs = std::max(life.lastNs, timeNs);
}

ProcessLives::Life* ProcessLives::NewLife(uint64_t timeNs) {
    if (lives_.size() >= MAX_LIVES) {
        return nullptr;
    }
    return &lives_.emplace_back(++lastProcess_, timeNs);
}

ProcessLives::Life* ProcessLives::LifeOf(const ProcessIdentity& identity, uint64_t timeNs) {
    const auto known = std::find_if(lives_.rbegin(), lives_.rend(), [&](const Life& life) {
        return life.startTicks == identity.startTicks;
    });
    if (known != lives_.rend()) {
        return &*known;
    }
    Life* life = NewLife(timeNs);
    if (life != nullptr) {
        life->startTicks = identity.startTicks;
    }
    return life;
}

std::optional<uint64_t> ProcessLives::OfCpuReading(const ProcessIdentity& identity,
                                                   uint64_t timeNs) {
    Life* life = LifeOf(identity, timeNs);
    if (life == nullptr) {
        return std::nullopt;
    }
    hasCpu_ = true;
    Include(*life, timeNs);
    life->firstCpuNs = std::min(life->firstCpuNs, timeNs);
    life->lastCpuNs = std::max(life->lastCpuNs, timeNs);
    life->parentPid = identity.parentPid;
    life->name.assign(identity.name);
    return life->process;
}

ProcessLives::Life* ProcessLives::NearestTo(uint64_t timeNs) {
    const auto distance = [timeNs](const Life& life) {
        if (timeNs < life.firstCpuNs) {
            return life.firstCpuNs - timeNs;
        }
        return timeNs > life.lastCpuNs ? timeNs - life.lastCpuNs : 0;
    };
    return &*std::min_element(
        lives_.begin(), lives_.end(),
        [&](const Life& left, const Life& right) { return distance(left) < distance(right); });
}

ProcessLives::Life* ProcessLives::LifeOfCount(uint32_t index, uint64_t timeNs) {
    const bool isNew = lives_.empty() || index <= lastIndex_;
    lastIndex_ = index;
    return isNew ? NewLife(timeNs) : &lives_.back();
}

std::optional<uint64_t> ProcessLives::OfMemoryReading(std::string_view name, uint32_t index,
                                                      uint64_t timeNs) {
    Life* life = hasCpu_ ? NearestTo(timeNs) : LifeOfCount(index, timeNs);
    if (life == nullptr) {
        return std::nullopt;
    }
    Include(*life, timeNs);
    if (!hasCpu_ && !name.empty()) {
        life->name.assign(name);
    }
    return life->process;
}

void ProcessLives::Finish() {
    std::string room;
    for (const Life& life : lives_) {
        ProcessRow row;
        row.deviceId = context_.deviceId;
        row.process = life.process;
        row.pid = pid_;
        row.startTicks = life.startTicks;
        row.parentPid = life.parentPid;
        row.name = Utf8Text(life.name, room);
        row.firstNs = life.firstNs;
        row.lastNs = life.lastNs;
        context_.visitor.OnProcess(row);
    }
    lives_.clear();
}

}  // namespace tiv::host
