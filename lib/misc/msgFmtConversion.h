// The grammar of message formats: cuts a format into plain text and conversions, and tells which kind of
// argument a conversion takes. Shared by the capture and the expansion of arguments.
#pragma once

#include <string_view>

#include "lib/misc/msgFmt.h"

enum MsgFmtStatus : int {
    MSGFMT_OK = 0,
    MSGFMT_NO_MEMORY = -1,
    MSGFMT_BAD_FORMAT = -2,
};

// One conversion of a format, such as "%2$-8.3ls". The views point into the format.
struct MsgFmtConversion {
    std::string_view position;  // the digits before "$", empty without a position
    std::string_view body;      // all behind the position, letter included
    std::string_view layout;    // flags, width and precision as written
    int number;                 // the position as a number, 0 without one
    int precision;              // -1 when none
    char size;                  // one of MSGFMT_SIZES
    char letter;                // such as 's'
};

// The normalised sizes; '_' stands for none, 'H' for hh, 'L' for ll.
inline constexpr std::string_view MSGFMT_SIZES = "_hHlLjtz";

enum MsgFmtPieceKind { MSGFMT_PIECE_END, MSGFMT_PIECE_TEXT, MSGFMT_PIECE_CONVERSION, MSGFMT_PIECE_BAD };

struct MsgFmtPiece {
    MsgFmtPieceKind kind;
    std::string_view text;        // of a text piece; "%%" gives a single "%"
    MsgFmtConversion conversion;  // only position, number and body are set
};

// Takes the next piece from *cursor and moves it on.
MsgFmtPiece MsgFmt_NextPiece(const char **cursor);

// Fills the rest of the conversion from its body.
MsgFmtStatus MsgFmt_Analyse(MsgFmtConversion *conversion);

// For an analysed conversion. MSGFMT_ARG_INVALID when the combination of letter and size is refused.
MsgFmtArgType MsgFmt_ArgTypeOf(const MsgFmtConversion &conversion);
