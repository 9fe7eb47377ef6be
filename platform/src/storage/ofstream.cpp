#include <foundation/storage/vfs/ofstream.hpp>

#include <cerrno>
#include <streambuf>
#include <string>
#include <vector>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/os/system.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::vfs {

// Buffer: a put area in front of a descriptor of the OS seam.
class ofstream::Buffer final : public std::streambuf {
  public:
    static constexpr std::size_t kSize = 1 << 16;

    explicit Buffer(int descriptor) : m_descriptor(descriptor), m_area(kSize) {
        setp(m_area.data(), m_area.data() + m_area.size());
    }

    bool IsOpen() const noexcept { return m_descriptor >= 0; }

    // Flush: writes the put area out; false on failure (and always once closed, if anything is
    // pending).
    bool Flush() {
        const auto pending = static_cast<std::size_t>(pptr() - pbase());
        setp(m_area.data(), m_area.data() + m_area.size());
        if (pending == 0)
            return true;
        return IsOpen() &&
               Velmora::os::System().WriteAll(m_descriptor, {m_area.data(), pending}) == 0;
    }
    // Close: gives the descriptor back, writing the put area first unless `drop`.
    bool Close(bool drop) {
        if (!IsOpen())
            return true;
        if (drop)
            setp(m_area.data(), m_area.data() + m_area.size());
        const bool flushed = Flush();
        const bool closed = Velmora::os::System().CloseFile(m_descriptor) == 0;
        m_descriptor = -1;
        return flushed && closed;
    }

  protected:
    int_type overflow(int_type c) override {
        if (!Flush())
            return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        // Large pieces go straight to the file instead of through the put area.
        if (static_cast<std::size_t>(n) < m_area.size() / 2)
            return std::streambuf::xsputn(s, n);
        if (!Flush() || !IsOpen() ||
            Velmora::os::System().WriteAll(m_descriptor, {s, static_cast<std::size_t>(n)}) != 0) {
            return 0;
        }
        return n;
    }
    int sync() override { return Flush() ? 0 : -1; }

  private:
    int m_descriptor;
    std::vector<char> m_area;
};

ofstream::ofstream() : std::ostream(nullptr) {}

ofstream::~ofstream() {
    if (m_buffer)
        m_buffer->Close(!good());
}

void ofstream::open(const File& file, std::ios_base::openmode mode) {
    const std::string native = file.getNativePath();
    if (is_open()) {
        throw Exception("cannot open file \"" + native + "\": the stream is open already", EBUSY);
    }
    if (!(mode & std::ios_base::out) || (mode & std::ios_base::app) || (mode & std::ios_base::in)) {
        throw Exception("cannot open file \"" + native + "\" for output: mode not served", EINVAL);
    }
    int descriptor = -1;
    if (const int err = Velmora::os::System().OpenFileForWriting(native, descriptor); err != 0) {
        throw Exception("cannot open file \"" + native + "\": " + Velmora::os::ErrorText(err), err);
    }
    auto buffer = std::make_unique<Buffer>(descriptor);
    rdbuf(buffer.get());  // also clears the state
    m_buffer = std::move(buffer);
}

bool ofstream::is_open() const noexcept {
    return m_buffer && m_buffer->IsOpen();
}

void ofstream::close() {
    if (!is_open())
        return;
    // The buffer stays installed (closed) so that the state is not touched: only a failure of
    // this close is reported.
    const bool wasGood = good();
    if (!m_buffer->Close(!wasGood) && wasGood)
        setstate(std::ios_base::badbit);
}

}  // namespace foundation::storage::vfs
