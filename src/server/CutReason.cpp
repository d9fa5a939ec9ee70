#include "server/CutReason.h"

namespace ql::impl {

const char* cutWord(CutReason reason) {
    switch (reason) {
    case CutReason::None:
        return nullptr;
    case CutReason::ClientLeft:
        return "ClientAbort";
    case CutReason::HeadTimeout:
        return "HeadTimeout";
    case CutReason::BodyTimeout:
        return "BodyTimeout";
    case CutReason::AnswerTimeout:
        return "AnswerTimeout";
    case CutReason::WriteTimeout:
        return "WriteTimeout";
    case CutReason::BodyTooLarge:
        return "BodyTooLarge";
    }
    return nullptr;
}

} // namespace ql::impl
