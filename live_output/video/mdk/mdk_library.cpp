#include "live_output/video/mdk/mdk_library.h"

namespace mdk {
std::shared_ptr<Library> Library::Default() { return std::shared_ptr<Library>(new Library()); }
std::shared_ptr<Library> Library::Load(const std::wstring&) { return std::shared_ptr<Library>(new Library()); }
Library::~Library() = default;
const mdkPlayerAPI* Library::NewPlayer() const { return nullptr; }
void Library::DeletePlayer(const mdkPlayerAPI**) const {}
}  // namespace mdk
