#include "KorvaneCommand/terminal/ManualPage.hpp"

#include "KorvaneCommand/terminal/Wrapped.hpp"

namespace Korvane {

namespace {

using CommandTree::Command;
using CommandTree::Option;

constexpr const char* tail = R"man(.SH EXIT STATUS
.TP
0
Done.
.TP
1
Failed, or only a part was done, such as some of several files.
Standard error or the answer says what.
.TP
2
Called wrongly; nothing was done.
.TP
3
Not signed in: never, no longer, or the keychain is damaged.
Trying again is of no use before someone has signed in.
.PP
Errors are sentences on standard error, with
.B \-\-json
too.
.SH ENVIRONMENT
.TP
XDG_DATA_HOME
Where the container lies; by default ~/.local/share.
.TP
KORVANE_LOG
How much is told on standard error:
debug, info, warning (the default), error or off.
.TP
KORVANE_BUNDLE
A folder whose Info.plist is read instead of the program's own.
.TP
NOTIFY_SOCKET
Set by a service manager that wants to hear when
.B korvane run
and
.B korvane service
are ready.
.SH FILES
.TP
~/.local/share/group.app.korvane
The container: local index, settings, transfers. Closed to other users.
.TP
~/.local/share/korvane-service
The data of
.BR "korvane service" .
.SH EXAMPLES
.EX
korvane sign-in you@example.org
korvane sync add ~/Documents
systemctl --user enable --now korvane
korvane upload report.pdf --to Work
korvane status --json ~/Documents
.EE
)man";

/// Text that no request or escape is read from; its hyphens can be copied as they stand.
std::string roff(const std::string& text) {
    std::string result;
    char before = ' ';
    for (const char c : text) {
        if (before == ' ' && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '\\' || c == '-')
            result += '\\';
        result += c == '\\' ? 'e' : c;
        before = c;
    }
    return result;
}

std::string entry(const Option& option) {
    return ".TP\n\\fB" + roff(heading(option)) + "\\fR\n" + wrapped(roff(sentence(option) + "."));
}

std::string section(const Command& command) {
    auto text = ".SS \"" + roff(command.path) + "\"\n.nf\n" + roff(usage(command, "...")) + "\n.fi\n.PP\n" +
                wrapped(roff(command.about + "."));
    if (!command.details.empty())
        text += wrapped(roff(command.details));
    for (const auto& argument : command.arguments)
        text += entry(argument);
    for (const auto& option : command.options)
        text += entry(option);
    return text;
}

} // namespace

std::string manualPage(const Command& program) {
    std::string text =
        ".TH KORVANE 1 \"" KORVANE_DATE "\" \"korvane " KORVANE_VERSION "\" \"User Commands\"\n"
        ".SH NAME\nkorvane \\- end\\-to\\-end\\-encrypted file storage\n"
        ".SH SYNOPSIS\n.B korvane\n.I COMMAND\n[\\fIOPTION\\fR...] [\\fIARGUMENT\\fR...]\n"
        ".SH DESCRIPTION\n"
        "Files, names and attributes are encrypted on this device before they leave it;\n"
        "the service never sees a key that opens them.\n"
        "Answers go to standard output, as one line of JSON with\n"
        ".BR \\-\\-json ;\n"
        "everything else goes to standard error.\n"
        ".SH OPTIONS\n";
    for (const auto& option : program.options)
        text += entry(option);
    text += ".SH COMMANDS\n";
    for (const auto* command : CommandTree::all(program))
        if (command != &program)
            text += section(*command);
    return text + tail;
}

} // namespace Korvane
