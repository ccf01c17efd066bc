#include "apps/camhost/console.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include "apps/camhost/arguments.h"
#include "apps/camhost/interrupt.h"

namespace camhost {

namespace {

constexpr int kHistoryLines = 500;

std::sig_atomic_t volatile theWindowChanged = 0;

extern "C" void onWindowChange(int /*signal*/) {
    theWindowChanged = 1;
}

/// \return what all texts begin with
std::string commonBeginning(const std::vector<std::string>& texts) {
    std::string common = texts.front();
    for (const std::string& text : texts) {
        const auto [end, ignored] =
            std::mismatch(common.begin(), common.end(), text.begin(), text.end());
        common.erase(end, common.end());
    }
    return common;
}

std::size_t lastWordSize(std::string_view line) {
    const auto blank = line.find_last_of(" \t");
    return blank == line.npos ? line.size() : line.size() - blank - 1;
}

struct tsCloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

} // namespace

/// The line editor with everything it owns.
class tcConsole::tcEditor {
public:
    tcEditor(tcExecutor& executor, const tcOutput& output, std::string historyPath);
    tcEditor(const tcEditor&) = delete;
    tcEditor& operator=(const tcEditor&) = delete;
    ~tcEditor();

    /// \return the next line; nothing at the end of the input or when there is a request
    std::optional<std::string> readLine();

    /// Forgets the line typed so far.
    void dropLine() {
        el_reset(m_editor.get());
        std::fputs("\n", m_screen.get());
    }

private:
    static tcEditor& self(EditLine* editor);
    static char* prompt(EditLine* editor);
    static int readCharacter(EditLine* editor, wchar_t* character);
    static unsigned char complete(EditLine* editor, int key);

    int nextByte(char& byte);
    unsigned char insertCompletion();
    void remember(const std::string& line);

    tcExecutor& m_executor;
    std::string m_historyPath;
    std::unique_ptr<std::FILE, tsCloseFile> m_screen;
    std::unique_ptr<History, void (*)(History*)> m_history;
    std::unique_ptr<EditLine, void (*)(EditLine*)> m_editor;
    std::mbstate_t m_shift{};
    bool m_capturing = false;
};

tcConsole::tcEditor::tcEditor(tcExecutor& executor, const tcOutput& output, std::string historyPath)
    : m_executor(executor),
      m_historyPath(std::move(historyPath)),
      m_screen(::fdopen(::dup(output.replyDescriptor()), "w")),
      m_history(::history_init(), ::history_end),
      m_editor(::el_init("camhost", stdin, m_screen.get(), stderr), ::el_end) {
    std::setlocale(LC_CTYPE, ""); // what is typed may be any text
    std::setvbuf(m_screen.get(), nullptr, _IOLBF, BUFSIZ);
    struct sigaction action {};
    action.sa_handler = onWindowChange;
    sigemptyset(&action.sa_mask);
    sigaction(SIGWINCH, &action, nullptr);

    HistEvent event{};
    ::history(m_history.get(), &event, H_SETSIZE, kHistoryLines);
    ::history(m_history.get(), &event, H_SETUNIQUE, 1);
    if (!m_historyPath.empty())
        ::history(m_history.get(), &event, H_LOAD, m_historyPath.c_str());

    EditLine* const editor = m_editor.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, &tcEditor::prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, ::history, m_history.get());
    el_set(editor, EL_GETCFN, &tcEditor::readCharacter);
    el_wset(editor, EL_ADDFN, L"camhost-complete", L"Completes commands and arguments",
            &tcEditor::complete); // the narrow call would leak its strings
    el_set(editor, EL_BIND, "^I", "camhost-complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_source(editor, nullptr); // the person's own habits
}

tcConsole::tcEditor::~tcEditor() {
    HistEvent event{};
    if (!m_historyPath.empty())
        ::history(m_history.get(), &event, H_SAVE, m_historyPath.c_str());
}

tcConsole::tcEditor& tcConsole::tcEditor::self(EditLine* editor) {
    void* data = nullptr;
    el_get(editor, EL_CLIENTDATA, &data);
    return *static_cast<tcEditor*>(data);
}

char* tcConsole::tcEditor::prompt(EditLine* editor) {
    static char thePrompt[] = "camhost> ";
    static char theCapturePrompt[] = "camhost (capturing)> ";
    return self(editor).m_capturing ? theCapturePrompt : thePrompt;
}

std::optional<std::string> tcConsole::tcEditor::readLine() {
    m_capturing = m_executor.isCapturing();
    // Keys pressed as soon as the prompt is there are the editor's, not the terminal's: Ctrl-D
    // would be lost in between.
    el_set(m_editor.get(), EL_PREP_TERM, 1);
    int count = 0;
    const char* const line = el_gets(m_editor.get(), &count);
    if (line == nullptr || count <= 0)
        return std::nullopt;
    std::string text = trimmed(line);
    remember(text);
    return text;
}

void tcConsole::tcEditor::remember(const std::string& line) {
    HistEvent event{};
    if (!line.empty())
        ::history(m_history.get(), &event, H_ENTER, line.c_str());
}

/// \return 1 for a byte, 0 at the end of the input, -1 when there is a request
int tcConsole::tcEditor::nextByte(char& byte) {
    while (true) {
        if (theWindowChanged != 0) {
            theWindowChanged = 0;
            el_resize(m_editor.get());
        }
        if (tcInterrupt::requested())
            return -1;
        pollfd sources[2] = {{STDIN_FILENO, POLLIN, 0}, {tcInterrupt::descriptor(), POLLIN, 0}};
        if (::poll(sources, 2, kLookAgain) <= 0 || sources[0].revents == 0)
            continue;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count < 0 && errno == EINTR)
            continue;
        return count > 0 ? 1 : 0;
    }
}

int tcConsole::tcEditor::readCharacter(EditLine* editor, wchar_t* character) {
    tcEditor& console = self(editor);
    while (true) {
        char byte = 0;
        const int got = console.nextByte(byte);
        if (got <= 0)
            return got;
        const std::size_t used = std::mbrtowc(character, &byte, 1, &console.m_shift);
        if (used == static_cast<std::size_t>(-1)) { // no character of the person's encoding
            console.m_shift = {};
            continue;
        }
        if (used != static_cast<std::size_t>(-2))
            return 1;
    }
}

unsigned char tcConsole::tcEditor::complete(EditLine* editor, int /*key*/) {
    return self(editor).insertCompletion();
}

unsigned char tcConsole::tcEditor::insertCompletion() {
    const LineInfo* const info = el_line(m_editor.get());
    const std::string line(info->buffer, info->cursor);
    const std::vector<std::string> candidates = m_executor.completions(line);
    if (candidates.empty())
        return CC_ERROR;
    std::string addition = commonBeginning(candidates).substr(lastWordSize(line));
    if (candidates.size() == 1 && !candidates.front().ends_with('/'))
        addition += ' ';
    if (!addition.empty()) {
        el_insertstr(m_editor.get(), addition.c_str());
        return CC_REFRESH;
    }
    std::fputs("\n", m_screen.get());
    for (const std::string& candidate : candidates)
        std::fprintf(m_screen.get(), "%s  ", candidate.c_str());
    std::fputs("\n", m_screen.get());
    return CC_REDISPLAY;
}

tcConsole::tcConsole(tcExecutor& executor, tcOutput& output, std::string history)
    : m_editor(std::make_unique<tcEditor>(executor, output, std::move(history))),
      m_executor(executor),
      m_output(output) {}

tcConsole::~tcConsole() = default;

void tcConsole::run() {
    while (!tcInterrupt::endRequested()) {
        const auto line = m_editor->readLine();
        if (tcInterrupt::requested()) { // Ctrl-C at the prompt
            tcInterrupt::clear();
            m_editor->dropLine();
            if (const auto result = m_executor.stopCapture())
                m_output.reply("capture stopped, result " + std::to_string(*result));
            continue;
        }
        if (!line) {
            m_editor->dropLine();
            return;
        }
        const tsReply reply = m_executor.execute(*line);
        tcInterrupt::clear(); // it ended the command, not the console
        if (reply.ok() || reply.json)
            m_output.reply(reply.text);
        else
            m_output.error("error: " + reply.text);
        if (reply.quit)
            return;
    }
}

std::string historyFile() {
    namespace fs = std::filesystem;
    const char* const states = std::getenv("XDG_STATE_HOME");
    const char* const home = std::getenv("HOME");
    fs::path folder;
    if (states != nullptr && *states == '/')
        folder = states;
    else if (home != nullptr && *home == '/')
        folder = fs::path(home) / ".local" / "state";
    else
        return {};
    folder /= "camhost";
    std::error_code error;
    fs::create_directories(folder, error);
    return error ? std::string() : (folder / "history").string();
}

} // namespace camhost
