#include <orvane/platform/base/MappedMemory.h>

#include <sys/mman.h>

#include <new>

namespace orvane::platform {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

}  // namespace

std::shared_ptr<std::byte[]> mappedMemory(std::size_t size) noexcept try {
  // A fault for each small page would cost as much as hashing what the memory is for: 3 ms for
  // 4 MiB, with huge pages 0.5 ms. Those begin at multiples of their size.
  const std::size_t room = (size + kHugePage - 1) / kHugePage * kHugePage;
  const std::size_t mapped = room + kHugePage;
  void* const memory =
      mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  const std::shared_ptr<void> owner(memory, [mapped](void* begin) { munmap(begin, mapped); });
  void* begin = memory;
  std::size_t space = mapped;
  std::align(kHugePage, room, begin, space);
  madvise(begin, room, MADV_HUGEPAGE);
  return {owner, static_cast<std::byte*>(begin)};
} catch (const std::bad_alloc&) {
  return nullptr;  // The memory is given back by then.
}

}  // namespace orvane::platform
