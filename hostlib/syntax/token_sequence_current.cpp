// Kept apart from token_sequence.cpp: only this constructor needs the session.
#include "host/syntax.h"
#include "hostlib/session/session.h"

VORN_TokenSequence::VORN_TokenSequence(bool currentCommand)
    : VORN_TokenSequence(currentCommand ? hostlib::Session::Instance().CurrentCommand() : nullptr) {
}
