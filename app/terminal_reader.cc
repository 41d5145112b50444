// Line editing at a terminal.
#include "app/terminal_reader.h"

#include <cstdio>
#include <utility>

#include <histedit.h>

#include "app/completion.h"

namespace quarro {
namespace {

constexpr int kRecallableLines = 1000;

class TerminalReader : public LineReader {
 public:
  explicit TerminalReader(std::vector<std::string> command_names)
      : command_names_(std::move(command_names)),
        editor_(el_init("Quarro_Client", stdin, stdout, stderr)),
        history_(history_init()) {
    if (!Usable()) {
      return;
    }
    HistEvent event;
    history(history_, &event, H_SETSIZE, kRecallableLines);
    history(history_, &event, H_SETUNIQUE, 1);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_PROMPT, &TerminalReader::Prompt);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_HIST, history, history_);
    // A signal that ends the program first gives the terminal back.
    el_set(editor_, EL_SIGNAL, 1);
    el_set(editor_, EL_ADDFN, "complete-word", "Complete a command or file name",
           &TerminalReader::CompleteWord);
    el_set(editor_, EL_BIND, "^I", "complete-word", nullptr);
    // Ctrl-D deletes; the end of input is the terminal's going away.
    el_set(editor_, EL_BIND, "^D", "ed-delete-next-char", nullptr);
  }
  TerminalReader(const TerminalReader&) = delete;
  TerminalReader& operator=(const TerminalReader&) = delete;
  ~TerminalReader() override {
    if (history_ != nullptr) {
      history_end(history_);
    }
    if (editor_ != nullptr) {
      el_end(editor_);
    }
  }

  bool Usable() const { return editor_ != nullptr && history_ != nullptr; }

  std::string ReadLine(const std::string& prompt) override {
    prompt_ = prompt;
    int length = 0;
    const char* text = el_gets(editor_, &length);
    if (text == nullptr || length <= 0) {
      WaitForSignal();
    }
    std::string line(text, static_cast<std::size_t>(length));
    if (line.back() == '\n') {
      line.pop_back();
    }
    if (!line.empty()) {
      HistEvent event;
      history(history_, &event, H_ENTER, line.c_str());
    }
    return line;
  }

 private:
  static TerminalReader& Of(EditLine* editor) {
    void* reader = nullptr;
    el_get(editor, EL_CLIENTDATA, &reader);
    return *static_cast<TerminalReader*>(reader);
  }

  static char* Prompt(EditLine* editor) { return Of(editor).prompt_.data(); }

  static unsigned char CompleteWord(EditLine* editor, int /*key*/) {
    const LineInfo* line = el_line(editor);
    const std::string typed(line->buffer, line->cursor);
    const Completion completion = Complete(typed, Of(editor).command_names_);
    if (!completion.insertion.empty()) {
      return el_insertstr(editor, completion.insertion.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }
    if (completion.candidates.size() < 2) {
      return CC_ERROR;
    }
    std::fputc('\n', stdout);
    for (const std::string& candidate : completion.candidates) {
      std::fprintf(stdout, "%s\n", candidate.c_str());
    }
    std::fflush(stdout);
    return CC_REDISPLAY;
  }

  const std::vector<std::string> command_names_;
  std::string prompt_;
  EditLine* const editor_;
  History* const history_;
};

}  // namespace

std::unique_ptr<LineReader> MakeTerminalReader(const std::vector<std::string>& command_names) {
  auto reader = std::make_unique<TerminalReader>(command_names);
  if (!reader->Usable()) {
    return nullptr;
  }
  return reader;
}

}  // namespace quarro
