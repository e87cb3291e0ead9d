// edit: a text, an editor, and the change as a whole.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/output/editText.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

constexpr const char *ERROR_MARK = "#! ";

// A file that goes with the object.
class Draft {
  public:
    Draft() : path_("/tmp/harbrelctl.XXXXXX") { file_ = FileDescriptor(mkstemp(path_.data())); }
    ~Draft() {
        if (file_) {
            unlink(path_.c_str());
        }
    }
    Draft(Draft &&) = delete;
    explicit operator bool() const { return static_cast<bool>(file_); }
    const std::string &path() const { return path_; }
    bool Write(const std::string &text) const {
        std::ofstream stream(path_, std::ios::trunc);
        stream << text;
        return static_cast<bool>(stream.flush());
    }
    std::string Read() const {
        std::ifstream stream(path_);
        std::stringstream text;
        text << stream.rdbuf();
        return text.str();
    }

  private:
    std::string path_;
    FileDescriptor file_;
};

// By the shell, since the variable may hold options.
bool RunEditor(const std::string &path) {
    const char *editor = getenv("VISUAL");
    editor = editor != nullptr ? editor : getenv("EDITOR");
    const std::string command = std::string(editor != nullptr ? editor : "editor") + " '" + path + "'";
    const int status = system(command.c_str());
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string WithoutErrors(const std::string &text) {
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        kept += line.starts_with(ERROR_MARK) ? "" : line + "\n";
    }
    return kept;
}

// Each line behind the mark.
std::string AsComments(const std::string &errors) {
    std::istringstream lines(errors);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        text += ERROR_MARK + line + "\n";
    }
    return text;
}

std::string ProblemsOf(const Editor &editor, const Wish &wish) {
    std::string text;
    for (const Problem &problem :
         NewProblems(editor.context.host.config, wish.after, wish.networks, editor.surroundings)) {
        text += problem.text + "\n";
    }
    return text;
}

// Until the text is right or the user gives up, which is an editor that fails or a text that is left as it
// was.
int EditUntilGood(const Editor &editor, int network, Wish *wish) {
    const Draft draft;
    std::string text = EditText(network, editor.context.host.config.networks[network]);
    for (std::string errors;;) {
        const std::string shown = AsComments(errors) + text;
        if (!draft || !draft.Write(shown) || !RunEditor(draft.path())) {
            Complain("the editor has failed; nothing is changed");
            return STATUS_FAILED;
        }
        const std::string edited = draft.Read();
        if (edited == shown) {
            if (!errors.empty()) {
                Complain("nothing is changed:\n%s", errors.c_str());
            }
            return errors.empty() ? STATUS_DONE : STATUS_USAGE;
        }
        text = WithoutErrors(edited);
        wish->after = editor.context.host.config;
        errors = ReadEditText(text, &wish->after.networks[network]);
        errors += errors.empty() ? ProblemsOf(editor, *wish) : "";
        if (errors.empty()) {
            return STATUS_DONE;
        }
    }
}

}  // namespace

int RunEdit(const Arguments &arguments) {
    return Change(arguments, [&](const Editor &editor, Wish *wish) {
        return EditUntilGood(editor, wish->networks.front(), wish);
    });
}
