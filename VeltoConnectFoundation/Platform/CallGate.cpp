#include <VeltoConnectFoundation/Platform/CallGate.h>

namespace velto {

namespace {

thread_local const CallGate::Passage* innermostPassage = nullptr;

}  // namespace

CallGate::Passage::Passage(CallGate& gate)
    : gate_(gate),
      outer_(innermostPassage),
      isOpen_((gate.state_.fetch_add(onePassage) & shutFlag) == 0) {
    innermostPassage = this;
}

CallGate::Passage::~Passage() {
    innermostPassage = outer_;
    if ((gate_.state_.fetch_sub(onePassage) & shutFlag) != 0) {
        gate_.state_.notify_all();
    }
}

void CallGate::shut() {
    int own = shutFlag;
    for (const Passage* passage = innermostPassage; passage != nullptr; passage = passage->outer_) {
        own += &passage->gate_ == this ? onePassage : 0;
    }
    int state = state_.fetch_or(shutFlag) | shutFlag;
    while (state != own) {
        state_.wait(state);
        state = state_.load();
    }
}

}  // namespace velto
