#include "rfm_IOS.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_Exc.h"
#include "rfm_StringManager.h"

#include <algorithm>
#include <memory>

rfm_StringManager::~rfm_StringManager() = default;

namespace
{
// References move in pieces, so that a count that no stream can hold costs no memory.
constexpr int kPiece = 4096;
} // namespace

int rfm_IOS::ReadArray(cow_String* values, int count)
{
    CheckArray(values, count);
    const int size = StringManager()->ReferenceSize();
    const auto references = std::make_unique_for_overwrite<char[]>(
        static_cast<std::size_t>(std::min(count, kPiece)) * static_cast<std::size_t>(size));
    int done = 0;
    while (done < count)
    {
        const int wanted = std::min(count - done, kPiece);
        const int got = Read(references.get(), wanted * size) / size;
        if (got > 0) StringManager()->Decode(references.get(), values + done, got);
        done += got;
        if (got < wanted) break;
    }
    return done;
}

cow_String rfm_IOS::ReadString()
{
    cow_String text;
    if (ReadArray(&text, 1) < 1) rfm_ThrowEndOfFile();
    return text;
}

void rfm_IOS::WriteArray(const cow_String* values, int count)
{
    CheckArray(values, count);
    const int size = StringManager()->ReferenceSize();
    const auto references = std::make_unique_for_overwrite<char[]>(
        static_cast<std::size_t>(std::min(count, kPiece)) * static_cast<std::size_t>(size));
    for (int done = 0; done < count;)
    {
        const int piece = std::min(count - done, kPiece);
        StringManager()->Encode(references.get(), values + done, piece);
        if (Write(references.get(), piece * size) != piece * size)
            nex_ThrowText(atr_Message("***ERROR: Write operation failed."));
        done += piece;
    }
}

void rfm_IOS::WriteString(const cow_String& text) { WriteArray(&text, 1); }
