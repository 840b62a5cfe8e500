#include <VeltoConnectFoundation/Platform/StreamDelegate.h>

namespace velto {

StreamDelegate::~StreamDelegate() = default;

void StreamDelegate::streamHandleEvent(Stream&, StreamEvent) {
}

}  // namespace velto
