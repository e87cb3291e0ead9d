#include "daemons/zelan-dhcpd/dhcpSyntax.h"

#include <cctype>

namespace {

// Deeper than anybody nests, and little enough for the stack.
constexpr int MAX_DEPTH = 32;

class Reader {
  public:
    Reader(std::string_view text, DhcpFault *fault) : tokens_(text), fault_(fault) { Advance(); }

    bool ReadBlock(int depth, std::vector<DhcpStatement> *statements) {
        while (next_.kind != DhcpTokenKind::END && !next_.IsMark('}')) {
            if (next_.IsMark(';')) {
                Advance();
                continue;
            }
            statements->emplace_back();
            if (!ReadStatement(depth, &statements->back())) {
                return false;
            }
        }
        return true;
    }

    bool AtEnd() {
        return next_.kind == DhcpTokenKind::END || Refuse(next_.line, "no block is open that } could close");
    }

  private:
    void Advance() { next_ = tokens_.Next(); }

    bool Refuse(int line, std::string reason) {
        *fault_ = {line, std::move(reason)};
        return false;
    }

    // The braces of a record are part of a definition and not a block.
    bool AtRecord(const DhcpStatement &statement) const {
        return next_.IsMark('{') && !statement.words.empty() && statement.words.back().IsMark('=');
    }

    // But for the brace that closes it.
    bool ReadRecord(DhcpStatement *statement) {
        while (!next_.IsMark('}')) {
            if (next_.kind == DhcpTokenKind::END || next_.kind == DhcpTokenKind::FAULT || next_.IsMark(';')) {
                return Refuse(next_.line, "a record is not closed by }");
            }
            TakeWord(statement);
        }
        return true;
    }

    bool ReadStatement(int depth, DhcpStatement *statement) {
        while (!next_.IsMark(';') && !(next_.IsMark('{') && !AtRecord(*statement))) {
            if (next_.kind == DhcpTokenKind::FAULT) {
                return Refuse(next_.line, next_.text);
            }
            if (next_.kind == DhcpTokenKind::END || next_.IsMark('}')) {
                return Refuse(next_.line, "semicolon expected behind '" + statement->Text() + "'");
            }
            if (AtRecord(*statement) && !ReadRecord(statement)) {
                return false;
            }
            TakeWord(statement);
        }
        if (next_.IsMark(';')) {
            Advance();
            return true;
        }
        return ReadBody(depth, statement);
    }

    void TakeWord(DhcpStatement *statement) {
        statement->words.push_back(next_);
        Advance();
    }

    bool ReadBody(int depth, DhcpStatement *statement) {
        int line = next_.line;
        if (statement->words.empty()) {
            return Refuse(line, "nothing stands before {");
        }
        if (depth == MAX_DEPTH) {
            return Refuse(line, "blocks are nested too deeply");
        }
        Advance();
        statement->hasBody = true;
        if (!ReadBlock(depth + 1, &statement->body)) {
            return false;
        }
        if (next_.kind == DhcpTokenKind::END) {
            return Refuse(line, "the block of '" + statement->Text() + "' is not closed by }");
        }
        Advance();
        return true;
    }

    DhcpTokens tokens_;
    DhcpToken next_;
    DhcpFault *fault_;
};

}  // namespace

std::string DhcpStatement::Text() const {
    constexpr size_t MAX_LENGTH = 80;
    std::string text;
    for (const DhcpToken &word : words) {
        bool isText = word.kind == DhcpTokenKind::TEXT;
        text += text.empty() || word.IsMark(',') ? "" : " ";
        text += isText ? '"' + word.text + '"' : word.text;
        if (text.size() > MAX_LENGTH) {
            text = text.substr(0, MAX_LENGTH) + "...";
            break;
        }
    }
    for (char &letter : text) {
        letter = isprint(static_cast<unsigned char>(letter)) != 0 ? letter : '?';
    }
    return text;
}

bool DhcpSyntax_Parse(std::string_view text, std::vector<DhcpStatement> *statements, DhcpFault *fault) {
    statements->clear();
    Reader reader(text, fault);
    return reader.ReadBlock(0, statements) && reader.AtEnd();
}
