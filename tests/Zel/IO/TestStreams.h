#pragma once

#include <Zel/IO/AbstractStream.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Zel::IO::Testing {

// A connection-like source: hands out its bytes in pieces, never across a cut, the way a socket
// returns what has arrived so far. Read-only and not peekable, so that whoever reads it cannot
// look ahead. Counts how far it has been read and how often.
class PieceStream : public AbstractStream {
public:
    PieceStream(std::string data, std::vector<std::size_t> cuts)
        : m_data(std::move(data)), m_cuts(std::move(cuts)) {
        std::sort(m_cuts.begin(), m_cuts.end());
    }

    // Every read returns at most `size` bytes.
    static std::shared_ptr<PieceStream> trickle(const std::string& data, std::size_t size) {
        std::vector<std::size_t> cuts;
        for (std::size_t at = size; at < data.size(); at += size)
            cuts.push_back(at);
        return std::make_shared<PieceStream>(data, std::move(cuts));
    }
    // The first read ends at `offset`, the next returns the rest.
    static std::shared_ptr<PieceStream> split(const std::string& data, std::size_t offset) {
        return std::make_shared<PieceStream>(data, std::vector<std::size_t>{offset});
    }
    static std::shared_ptr<PieceStream> whole(const std::string& data) {
        return std::make_shared<PieceStream>(data, std::vector<std::size_t>{});
    }

    std::size_t read(void* buffer, std::size_t size) override {
        ++m_reads;
        std::size_t end = m_data.size();
        for (const std::size_t cut : m_cuts) {
            if (cut > m_position) {
                end = std::min(end, cut);
                break;
            }
        }
        const std::size_t count = std::min(size, end - m_position);
        std::memcpy(buffer, m_data.data() + m_position, count);
        m_position += count;
        return count;
    }

    std::uint32_t capabilities() const override { return Readable; }
    std::int64_t getPosition() const override { return static_cast<std::int64_t>(m_position); }

    std::size_t position() const { return m_position; }
    std::size_t reads() const { return m_reads; }
    std::string rest() const { return m_data.substr(m_position); }

private:
    std::string m_data;
    std::vector<std::size_t> m_cuts;
    std::size_t m_position = 0;
    std::size_t m_reads = 0;
};

// A sink that takes at most `piece` bytes per write, like a socket with a small send buffer.
class PieceSink : public AbstractStream {
public:
    explicit PieceSink(std::size_t piece) : m_piece(piece) {}

    std::size_t write(const void* data, std::size_t size) override {
        ++m_writes;
        const std::size_t count = std::min(size, m_piece);
        m_text.append(static_cast<const char*>(data), count);
        return count;
    }
    std::uint32_t capabilities() const override { return Writable; }

    const std::string& text() const { return m_text; }
    std::size_t writes() const { return m_writes; }

private:
    std::size_t m_piece;
    std::string m_text;
    std::size_t m_writes = 0;
};

} // namespace Zel::IO::Testing
