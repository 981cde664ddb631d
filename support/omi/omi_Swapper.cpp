#include "omi_Swapper.h"

template <class Word> static void Internalize(const char* stored, Word* words, int count)
{
    for (int i = 0; i < count; ++i)
        words[i] = omi_Load<Word>(stored + static_cast<std::size_t>(i) * sizeof(Word), true);
}

template <class Word> static void Externalize(const Word* words, char* stored, int count)
{
    for (int i = 0; i < count; ++i)
        omi_Store<Word>(stored + static_cast<std::size_t>(i) * sizeof(Word), words[i], true);
}

void omi_SwapperGuts::InternalizeArray(const char* stored, std::uint32_t* words, int count)
{
    Internalize(stored, words, count);
}

void omi_SwapperGuts::InternalizeArray(const char* stored, std::uint64_t* words, int count)
{
    Internalize(stored, words, count);
}

void omi_SwapperGuts::ExternalizeArray(const std::uint32_t* words, char* stored, int count)
{
    Externalize(words, stored, count);
}

void omi_SwapperGuts::ExternalizeArray(const std::uint64_t* words, char* stored, int count)
{
    Externalize(words, stored, count);
}
