#include "sources/compression.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <memory>
#include <system_error>
#include <vector>

namespace {

struct Free {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

/*
 * Logs become as small at the fastest level as at the usual one, in half the time. An item cannot be sent before its
 * size is known, so two processors share the compression; a library without threads does it alone. The least pieces of
 * work that there are keep the threads' buffers small: all of it together needs no more than the usual level alone.
 */
constexpr int level = 1;
constexpr int threads = 2;
constexpr int piece_of_work = 512 * 1024; /* bytes */

[[noreturn]] void fail(int error) { throw std::system_error(error, std::generic_category(), "compressing"); }

/* A file without a name, where the file system knows none one that has its name for a moment; -1: errno says why. */
int open_temporary(const std::string& directory) {
  const int nameless = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (nameless != -1 || errno != EOPNOTSUPP) return nameless;
  const std::string name = directory + "/item.tmp";
  unlink(name.c_str()); /* which may be there when the power was cut in this moment */
  const int fd = open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
  if (fd != -1) unlink(name.c_str());
  return fd;
}

using Context = std::unique_ptr<ZSTD_CCtx, Free>;

/* The size says whether threads are worth their beginning. */
Context context_for(int64_t size) {
  Context context(ZSTD_createCCtx());
  if (context == nullptr) throw std::bad_alloc();
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_compressionLevel, level);
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_nbWorkers, threads);
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_jobSize, piece_of_work);
  ZSTD_CCtx_setPledgedSrcSize(context.get(), static_cast<unsigned long long>(size));
  return context;
}

void write_all(int fd, const char* data, size_t length) {
  for (size_t written = 0; written < length;) {
    const ssize_t n = write(fd, data + written, length - written);
    if (n == -1 && errno != EINTR) fail(errno);
    if (n > 0) written += static_cast<size_t>(n);
  }
}

/* Reads what fits into piece, at most length bytes, and at least one. */
size_t read_piece(const OpenFile& file, const std::string& path, int64_t offset, int64_t length,
                  std::vector<char>& piece) {
  const auto wanted = static_cast<size_t>(std::min<int64_t>(length, static_cast<int64_t>(piece.size())));
  const size_t n = read_some(file, path, offset, piece.data(), wanted);
  if (n == 0) throw FileChanged(path);
  return n;
}

}  // namespace

OpenFile compress(const OpenFile& file, const std::string& path, int64_t first, int64_t length,
                  const std::string& directory, const std::function<void()>& check) {
  OpenFile result(open_temporary(directory));
  if (!result.is_open()) fail(errno);
  const Context context = context_for(length);

  std::vector<char> in(ZSTD_CStreamInSize());
  std::vector<char> out(ZSTD_CStreamOutSize());
  int64_t done = 0;
  bool is_last = false;
  do {
    check();
    const size_t size = done == length ? 0 : read_piece(file, path, first + done, length - done, in);
    done += static_cast<int64_t>(size);
    is_last = done == length;
    ZSTD_inBuffer input{in.data(), size, 0};
    bool more = true;
    while (more) {
      ZSTD_outBuffer output{out.data(), out.size(), 0};
      const size_t left = ZSTD_compressStream2(context.get(), &output, &input, is_last ? ZSTD_e_end : ZSTD_e_continue);
      if (ZSTD_isError(left) != 0) fail(ENOMEM);
      write_all(result.descriptor(), out.data(), output.pos);
      more = is_last ? left != 0 : input.pos < input.size;
    }
  } while (!is_last);
  return result;
}
