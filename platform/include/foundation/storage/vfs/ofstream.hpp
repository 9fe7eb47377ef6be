#pragma once
// ofstream: the storage layer's output file stream, a std::ostream over a File.
//
// Everything goes through the host's OS seam. Opening empties an existing file or creates a new
// one; a failure to open throws the storage layer's Exception with the errno behind it, and a
// failed write sets the stream's bad bit (so it throws when the caller asked for that with
// exceptions()).
//
//   ofstream out;
//   out.open(File(location, VorlanStorageSystem::GetStorageSystemReference()), std::ios_base::out);
//   out.exceptions(std::ios_base::badbit | std::ios_base::failbit);
//   out << "content";
//   out.close();  // flushes; a failure sets the bad bit

#include <ios>
#include <memory>
#include <ostream>

#include <foundation/storage/vfs/folder.hpp>
#include <velmora/platform/export.hpp>

namespace foundation::storage::vfs {

class VELMORA_PLATFORM_EXPORT ofstream : public std::ostream {
  public:
    ofstream();
    // Closes the file if it is open; a failure to flush what is left is not reported.
    ~ofstream() override;
    ofstream(const ofstream&) = delete;
    ofstream& operator=(const ofstream&) = delete;

    // open: opens `file` for writing. `mode` must hold std::ios_base::out; std::ios_base::app is
    // not served and std::ios_base::binary changes nothing. Throws Exception if the stream is open
    // already, the mode is not served or the file cannot be opened (the errno says why).
    void open(const File& file, std::ios_base::openmode mode = std::ios_base::out);
    bool is_open() const noexcept;
    // close: writes what is buffered and gives the file back. A stream that failed already drops
    // what it still buffers (it was never going to be whole); a new failure sets the bad bit.
    // Closing a stream that is not open does nothing.
    void close();

  private:
    class Buffer;
    std::unique_ptr<Buffer> m_buffer;
};

}  // namespace foundation::storage::vfs
