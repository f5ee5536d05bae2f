#pragma once

#include <Zel/Export.h>
#include <Zel/Log/BaseSink.h>

namespace Zel::Log {

// Writes each record's message as one line to the console: Warning in magenta, Error and Critical
// in red and prefixed with "ERROR: " / "CRITICAL: ", Notice, Debug and Trace in grey, Info in the
// console's own colour. On Windows the colours are console text attributes and the text goes to
// the wide console stream; elsewhere they are ANSI escape sequences, used only when standard
// output is a terminal unless told otherwise. Data and source position are not shown.
//
// Thread safety: any number of threads and of LogStdOut objects may write at once; a process-wide
// lock keeps each line, colour included, in one piece. Each line is flushed as it is written.
class ZEL_API LogStdOut : public BaseSink {
public:
    enum class Colours {
        Auto, // when standard output is a terminal
        Always,
        Never,
    };

    explicit LogStdOut(Level minimalLevel = Level::Trace, Colours colours = Colours::Auto);
    ~LogStdOut() override;

protected:
    void format(const Record& record, std::string& out) const override;
    void write(const Record& record, std::string_view text) override;

private:
    bool m_colours;
};

} // namespace Zel::Log
