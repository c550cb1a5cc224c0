#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>

namespace quorbin {

// Memory mapped straight from the system. It is returned at once, where an allocator would keep a
// large block for a reuse that may never come, and growing copies nothing. A core dump does not
// contain it.
class MappedBuffer {
 public:
  // Throws std::bad_alloc if there is no memory.
  explicit MappedBuffer(std::size_t size)
      : bytes_(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
        size_(size) {
    if (bytes_ == MAP_FAILED) throw std::bad_alloc();
    ::madvise(bytes_, size, MADV_DONTDUMP);
  }
  MappedBuffer(const MappedBuffer&) = delete;
  MappedBuffer& operator=(const MappedBuffer&) = delete;
  ~MappedBuffer() { ::munmap(bytes_, size_); }

  char* Data() const { return static_cast<char*>(bytes_); }
  std::size_t Size() const { return size_; }

  // Keeps the bytes that both sizes hold, perhaps in another place. False, and nothing changes, if
  // there is no memory.
  bool Resize(std::size_t size) {
    void* const resized = ::mremap(bytes_, size_, size, MREMAP_MAYMOVE);
    if (resized == MAP_FAILED) return false;
    bytes_ = resized;
    size_ = size;
    return true;
  }

 private:
  void* bytes_;
  std::size_t size_;
};

}  // namespace quorbin
