#include "Recovery.h"

#include "DatabaseFile.h"
#include "DatabaseWriter.h"
#include "PoolWalk.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_HeaderFormat.h"
#include "rfm_MetadataFormat.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringPoolFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

namespace rfm_tool
{
namespace
{
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
constexpr int kItemHeadBytes = 8;
constexpr int kTableLayoutOffset = rfm_TableFirstRowOffset - 4;
constexpr std::int64_t kTriedRows = 1000; // of a table whose layout is guessed
constexpr std::int64_t kPieceBytes = SpaceBytes::kWindowBytes;
// How much guessing a file can ask for, so that none makes it take for ever.
constexpr std::int64_t kMostTrials = 1000000;   // of a table with a layout
constexpr std::int64_t kTriedTimesTheFile = 16; // bytes of pools with pieces behind them

/// A value in a buffer of stored bytes.
template <class T> T Load(const std::string& bytes, std::int64_t place)
{
    return omi_Load<T>(bytes.data() + place, kSwapped);
}
template <class T> void Store(std::string& bytes, std::int64_t place, T value)
{
    omi_Store(bytes.data() + place, value, kSwapped);
}

// As many bytes as asked for; what is not there is zero.
std::string BytesAt(SpaceBytes& space, std::int64_t place, std::int64_t count)
{
    std::string bytes;
    while (static_cast<std::int64_t>(bytes.size()) < count)
    {
        const std::int64_t done = static_cast<std::int64_t>(bytes.size());
        const std::string piece = space.Text(place + done, std::min(count - done, kPieceBytes));
        if (piece.empty()) break;
        bytes += piece;
    }
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

/// The texts of a pool that may be damaged. While all of it reads as records, one behind the other, only these are
/// texts. When it does not, whatever a reference leads to is one if its length and the zeros behind it are right.
class SalvagedTexts
{
public:
    SalvagedTexts(FileImage& image, const SalvagedSpace& space)
        : m_Space(image, space.extents),
          m_Bytes(BytesAt(m_Space, 0, std::min(m_Space.Length(), rfm_MostStringPoolBytes)))
    {
        m_Starts.resize(m_Bytes.size() / 4 + 1);
        const std::int64_t end = static_cast<std::int64_t>(m_Bytes.size());
        std::int64_t place = rfm_StringPoolFirstRecord;
        for (; IsRecord(place); place += rfm_StringRecordBytes(Load<std::int32_t>(m_Bytes, place)))
            m_Starts[static_cast<std::size_t>(place / 4)] = true;
        m_DamagedAt = place < end ? place : -1;
        m_IsClean = !space.isCut && place == end && m_Space.IsReadable(0, end);
    }
    bool IsClean() const noexcept { return m_IsClean; }
    /// Where the records end although the pool does not; -1 when they don't.
    std::int64_t DamagedAt() const noexcept { return m_DamagedAt; }
    std::int64_t FileOffset(std::int64_t place) const { return m_Space.FileOffset(place); }

    std::optional<std::string_view> Find(double reference) const
    {
        if (!(reference >= rfm_StringPoolFirstRecord) || reference > static_cast<double>(m_Bytes.size()))
            return {};
        const std::int64_t place = static_cast<std::int64_t>(reference);
        if (static_cast<double>(place) != reference || place % 4 != 0 || !IsRecord(place)) return {};
        const std::int64_t length = Load<std::int32_t>(m_Bytes, place);
        const std::int64_t end = place + rfm_StringRecordBytes(length);
        const bool isKnown = m_Starts[static_cast<std::size_t>(place / 4)];
        if (!isKnown && (m_IsClean || !HasZeros(place + 4 + length, end))) return {};
        if (!m_IsClean && !m_Space.IsReadable(place, end - place)) return {};
        return std::string_view(m_Bytes).substr(static_cast<std::size_t>(place + 4),
                                                static_cast<std::size_t>(length));
    }

private:
    bool IsRecord(std::int64_t place) const
    {
        const std::int64_t left = static_cast<std::int64_t>(m_Bytes.size()) - place;
        if (left < 4) return false;
        const std::int64_t length = Load<std::int32_t>(m_Bytes, place);
        return length >= 0 && rfm_StringRecordBytes(length) <= left;
    }
    bool HasZeros(std::int64_t first, std::int64_t end) const
    {
        return std::all_of(m_Bytes.begin() + first, m_Bytes.begin() + end,
                           [](char byte) { return byte == 0; });
    }

    SpaceBytes m_Space;
    std::string m_Bytes;
    std::vector<bool> m_Starts; // by place / 4
    std::int64_t m_DamagedAt = -1;
    bool m_IsClean = false;
};

struct SalvagedLayout
{
    struct FieldOfRow
    {
        std::string name;
        int type = 0;
    };
    std::string name;
    std::vector<FieldOfRow> fields;
    int newPlace = 0;

    std::int64_t WordCount() const { return (static_cast<std::int64_t>(fields.size()) + 31) / 32; }
    std::int64_t RowBytes() const
    {
        std::int64_t bytes = WordCount() * 4;
        for (const FieldOfRow& field : fields) bytes += FieldBytes(field.type);
        return bytes;
    }
};

/// The layouts of a pool that may be damaged. A record tells its length, and so do its fields, whose types are no
/// lengths and whose names ascend.
class SalvagedLayouts
{
public:
    SalvagedLayouts(FileImage& image, const SalvagedSpace& space, const SalvagedTexts& texts)
        : m_Space(image, space.extents),
          m_Texts(texts),
          m_Bytes(BytesAt(m_Space, 0, std::min<std::int64_t>(m_Space.Length(), INT_MAX)))
    {
        for (std::int64_t place = rfm_MetadataFirstRecord; place + rfm_MetadataHeadBytes <= End();)
        {
            const std::int64_t length = LengthOf(place);
            if (length == 0)
            {
                place += 4; // up to where a record begins again
                continue;
            }
            Take(place, length);
            place += length;
        }
    }
    std::map<std::int64_t, SalvagedLayout>& All() noexcept { return m_Layouts; }
    /// What was met on the way.
    const LossList& Losses() const noexcept { return m_Losses; }
    const SalvagedLayout* Find(std::int64_t place) const
    {
        const auto found = m_Layouts.find(place);
        return found == m_Layouts.end() ? nullptr : &found->second;
    }

private:
    std::int64_t End() const { return static_cast<std::int64_t>(m_Bytes.size()); }
    bool IsHead(std::int64_t place) const
    {
        if (place == End()) return true;
        if (End() - place < rfm_MetadataHeadBytes) return false;
        const std::int32_t length = Load<std::int32_t>(m_Bytes, place);
        return rfm_IsMetadataLength(length) && length <= End() - place;
    }
    std::int64_t CountedLength(std::int64_t place) const
    {
        std::int64_t end = place + rfm_MetadataHeadBytes;
        for (std::string_view previous; End() - end >= rfm_MetadataFieldBytes; end += rfm_MetadataFieldBytes)
        {
            const std::optional<std::string_view> name = m_Texts.Find(Load<double>(m_Bytes, end + 4));
            const bool isFirst = end == place + rfm_MetadataHeadBytes;
            if (FieldBytes(Load<std::int32_t>(m_Bytes, end)) == 0 || !name || (!isFirst && *name <= previous))
                break;
            previous = *name;
        }
        return end - place;
    }
    // 0 when no layout begins there.
    std::int64_t LengthOf(std::int64_t place)
    {
        const std::int64_t stored = Load<std::int32_t>(m_Bytes, place);
        const bool canBe = rfm_IsMetadataLength(static_cast<int>(stored)) && stored <= End() - place;
        if (canBe && IsHead(place + stored)) return stored;
        const std::int64_t counted = CountedLength(place);
        const bool hasName = m_Texts.Find(Load<double>(m_Bytes, place + 4)).has_value();
        const bool hasFields = counted > rfm_MetadataHeadBytes;
        if (hasName && hasFields && (IsHead(place + counted) || !canBe))
        {
            m_Losses.Add({rfm_MetadataPoolHandle, m_Space.FileOffset(place), "length of a layout",
                          fmt::format("found {}; its fields make it {}", stored, counted), false});
            return counted;
        }
        return canBe ? stored : 0;
    }
    void Take(std::int64_t place, std::int64_t length);
    void NameFields(std::int64_t place, SalvagedLayout& layout);
    void Lose(std::int64_t place, const std::string& what, const std::string& why)
    {
        m_Losses.Add({rfm_MetadataPoolHandle, m_Space.FileOffset(place), what, why});
    }

    SpaceBytes m_Space;
    const SalvagedTexts& m_Texts;
    LossList m_Losses;
    std::string m_Bytes;
    std::map<std::int64_t, SalvagedLayout> m_Layouts; // by place
    std::set<std::string> m_Names;
};

void SalvagedLayouts::Take(std::int64_t place, std::int64_t length)
{
    SalvagedLayout layout;
    const std::optional<std::string_view> name = m_Texts.Find(Load<double>(m_Bytes, place + 4));
    layout.name = name ? std::string(*name) : "";
    const bool isNew = name && layout.name.find('\0') == std::string::npos && !m_Names.contains(layout.name);
    if (!isNew)
    {
        layout.name = fmt::format("lost name {}", place);
        Lose(place + 4, "name of a layout",
             fmt::format("no text, or one that another layout has; it is called {}", layout.name));
    }
    const auto reject = [&](std::int64_t at, const std::string& why)
    { Lose(at, "layout " + OneLine(layout.name), why + "; rows of its tables can't be told apart"); };
    if (!m_Space.IsReadable(place, length)) return reject(place, "not all of it can be read");
    for (std::int64_t field = place + rfm_MetadataHeadBytes; field < place + length;
         field += rfm_MetadataFieldBytes)
    {
        const int type = Load<std::int32_t>(m_Bytes, field);
        if (FieldBytes(type) == 0)
            return reject(field, fmt::format("a field is of type {}, which is none", type));
        layout.fields.push_back({"", type});
    }
    NameFields(place, layout);
    for (std::size_t i = 1; i < layout.fields.size(); ++i)
        if (layout.fields[i].name <= layout.fields[i - 1].name)
            return reject(place, "the names of its fields are not in ascending order");
    m_Names.insert(layout.name);
    m_Layouts.emplace(place, std::move(layout));
}

// A field without a name gets one that keeps the order, as the order says where a field lies: that of the field before
// it, and a little more. So does the one that breaks the order: of two in the wrong order it is the first when the
// second fits behind the one before.
void SalvagedLayouts::NameFields(std::int64_t place, SalvagedLayout& layout)
{
    std::vector<std::optional<std::string_view>> names;
    for (std::size_t i = 0; i < layout.fields.size(); ++i)
    {
        const std::int64_t field =
            place + rfm_MetadataHeadBytes + static_cast<std::int64_t>(i) * rfm_MetadataFieldBytes;
        names.push_back(m_Texts.Find(Load<double>(m_Bytes, field + 4)));
        if (names.back() && names.back()->find('\0') != std::string_view::npos) names.back().reset();
    }
    for (std::size_t i = 1; i < names.size(); ++i)
    {
        if (!names[i] || !names[i - 1] || *names[i] > *names[i - 1]) continue;
        const bool fitsBehind = i < 2 || !names[i - 2] || *names[i] > *names[i - 2];
        names[fitsBehind ? i - 1 : i].reset();
    }
    std::string previous;
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        std::string& name = layout.fields[i].name;
        name = names[i] ? std::string(*names[i]) : previous + " (lost)";
        if (!names[i])
            Lose(place + rfm_MetadataHeadBytes + static_cast<std::int64_t>(i) * rfm_MetadataFieldBytes + 4,
                 fmt::format("name of field {} of {}", i, OneLine(layout.name)),
                 fmt::format("no text, or one out of order; it is called \"{}\"", OneLine(name)));
        previous = name;
    }
}

/// The objects of a damaged database on their way into a new one.
class Recovery
{
public:
    Recovery(FileImage& image, LossList& losses, Progress& progress)
        : m_Image(image),
          m_Losses(losses),
          m_Progress(progress),
          m_TriedBytesLeft(kTriedTimesTheFile * image.Size())
    {
    }
    std::int64_t Run(FileKind kind, const std::string& path);

private:
    Heading ReadHeading();
    void FindTexts(const std::vector<SalvagedSpace>& spaces);
    void FindLayouts(const std::vector<SalvagedSpace>& spaces);
    bool IsWorthATry(const SalvagedSpace& pool, const SalvagedSpace& piece);
    template <class Judge>
    SalvagedSpace WithItsRest(const SalvagedSpace& pool, const std::vector<SalvagedSpace>& spaces,
                              const char* what, Judge isWhole);
    void WriteLayouts();
    void Copy(const SalvagedSpace& space);
    bool CopyByMark(std::uint32_t mark);

    void Table();
    const SalvagedLayout* LayoutOfTable();
    bool Fits(const SalvagedLayout& layout);
    void Rows(const SalvagedLayout& layout);
    bool Row(const SalvagedLayout& layout, std::int64_t row, std::string& bytes, std::int64_t there);
    void Array();
    void Elements(int type, std::int64_t columns);
    void Stream();
    bool Item(std::int64_t item, std::int64_t& place);
    void Space();

    void Begin()
    {
        m_Writer.emplace(m_Target->NewSpace(rfm_Handle(m_Handle), fmt::format("handle {}", m_Handle)));
        ++m_Written;
    }
    void Put(const std::string& bytes) { m_Writer->Write(bytes.data(), bytes.size()); }
    bool RenewText(std::string& bytes, std::int64_t place);
    std::int64_t NewReference(std::string_view text);
    void Lose(std::int64_t place, const std::string& what, const std::string& why)
    {
        m_Losses.Add({m_Handle, m_Bytes->FileOffset(place), what, why});
    }
    void LoseRun(const char* one, const char* many);
    void AddToRun(std::int64_t number, const char* one, const char* many, std::int64_t place);

    FileImage& m_Image;
    LossList& m_Losses;
    Progress& m_Progress;
    std::int64_t m_TriedBytesLeft; // of pools with pieces behind them
    std::optional<SalvagedTexts> m_Texts;
    std::optional<SalvagedLayouts> m_Layouts;
    std::optional<DatabaseWriter> m_Target;
    NewTexts m_NewTexts;
    std::unordered_map<double, std::int64_t> m_References;    // old to new
    std::unordered_map<std::string, std::int64_t> m_OwnTexts; // of names
    std::int64_t m_Written = 0;

    // The object that is copied.
    std::uint32_t m_Handle = 0;
    bool m_IsCut = false;
    std::optional<SpaceBytes> m_Bytes;
    std::optional<SpaceWriter> m_Writer;
    std::int64_t m_TrialsLeft = kMostTrials;
    // Rows in sequence that can't be read, told as one.
    std::int64_t m_RunFirst = 0;
    std::int64_t m_RunCount = 0;
    std::int64_t m_RunPlace = 0;
};

std::int64_t Recovery::Run(FileKind kind, const std::string& path)
{
    const std::vector<SalvagedSpace> spaces = Salvage(m_Image, m_Losses).Run();
    FindTexts(spaces);
    FindLayouts(spaces);
    m_Target.emplace(kind, path, ReadHeading());
    WriteLayouts();
    for (const SalvagedSpace& space : spaces)
        if (space.handle > rfm_MetadataPoolHandle) Copy(space);
    m_Target->Close(m_NewTexts);
    return m_Written;
}

Heading Recovery::ReadHeading()
{
    char bytes[rfm_HeaderBytes];
    m_Image.Read(0, bytes, sizeof bytes);
    const auto upToNul = [](std::string_view text) { return text.substr(0, text.find('\0')); };
    const std::string_view all(bytes, sizeof bytes);
    const std::string_view mark =
        upToNul(all.substr(rfm_MagicBytes - rfm_ApplicationMagicBytes, rfm_ApplicationMagicBytes));
    const std::string_view description = upToNul(all.substr(rfm_DescriptionOffset, rfm_DescriptionBytes));
    if (!all.starts_with("TVNR"))
        m_Losses.Add(
            {0, 0, "mark of a database", fmt::format("found \"{}\"", OneLine(all.substr(0, 4))), false});
    const int version = omi_Load<int>(bytes + rfm_VersionOffset, kSwapped);
    if (version < rfm_OldestVersion)
        m_Losses.Add({0, rfm_VersionOffset, "version", fmt::format("found {}", version), false});
    if (!rfm_SizeStampAllows(bytes + rfm_SizeStampOffset, kSwapped, m_Image.Size()))
        m_Losses.Add({0, rfm_SizeStampOffset, "size stamp", "it is not the size of the file", false});
    return {std::string(mark), cow_String(std::string(description)),
            omi_Load<std::uint32_t>(bytes + rfm_CreationTimeOffset, kSwapped)};
}

// ---- Pools ----

SalvagedSpace SpaceOf(std::uint32_t handle, const std::vector<SalvagedSpace>& spaces)
{
    for (const SalvagedSpace& each : spaces)
        if (each.handle == handle) return each;
    return {handle, {}, 0, true, false};
}

SalvagedSpace Joined(SalvagedSpace pool, const SalvagedSpace& piece)
{
    pool.extents.insert(pool.extents.end(), piece.extents.begin(), piece.extents.end());
    pool.isCut = piece.isCut;
    return pool;
}

bool Recovery::IsWorthATry(const SalvagedSpace& pool, const SalvagedSpace& piece)
{
    if (!pool.isCut || !piece.isLoose || piece.handle <= rfm_MetadataPoolHandle || piece.extents.empty())
        return false;
    for (const SalvagedSpace* each : {&pool, &piece})
        for (const Extent& extent : each->extents) m_TriedBytesLeft -= extent.length;
    return m_TriedBytesLeft >= 0;
}

// A pool that was cut, with the first loose piece behind it that makes it whole; as it is when none does.
template <class Judge>
SalvagedSpace Recovery::WithItsRest(const SalvagedSpace& pool, const std::vector<SalvagedSpace>& spaces,
                                    const char* what, Judge isWhole)
{
    for (const SalvagedSpace& piece : spaces)
    {
        if (!IsWorthATry(pool, piece)) continue;
        SalvagedSpace longer = Joined(pool, piece);
        if (!isWhole(longer)) continue;
        m_Losses.Add({pool.handle, piece.entryOffset, "what followed an entry of the linkage table",
                      fmt::format("the piece of handle {} goes on with it", piece.handle), false});
        return longer;
    }
    if (pool.isCut)
        m_Losses.Add({pool.handle, pool.entryOffset, fmt::format("{} at the end of the pool", what),
                      "the bytes can't be found"});
    return pool;
}

void Recovery::FindTexts(const std::vector<SalvagedSpace>& spaces)
{
    const SalvagedSpace pool =
        WithItsRest(SpaceOf(rfm_StringPoolHandle, spaces), spaces, "texts",
                    [&](const SalvagedSpace& longer) { return SalvagedTexts(m_Image, longer).IsClean(); });
    m_Texts.emplace(m_Image, pool);
    if (m_Texts->DamagedAt() >= 0)
        m_Losses.Add(
            {rfm_StringPoolHandle, m_Texts->FileOffset(m_Texts->DamagedAt()), "a text",
             "its length is none; the one before it may have been longer or shorter than it is now"});
}

void Recovery::FindLayouts(const std::vector<SalvagedSpace>& spaces)
{
    const SalvagedSpace cut = SpaceOf(rfm_MetadataPoolHandle, spaces);
    m_Layouts.emplace(m_Image, cut, *m_Texts);
    const SalvagedSpace pool = WithItsRest(cut, spaces, "layouts",
                                           [&](const SalvagedSpace& longer)
                                           {
                                               SalvagedLayouts layouts(m_Image, longer, *m_Texts);
                                               return layouts.All().size() > m_Layouts->All().size() &&
                                                      layouts.Losses().LostCount() == 0;
                                           });
    m_Layouts.emplace(m_Image, pool, *m_Texts);
    for (const Loss& loss : m_Layouts->Losses().Kept()) m_Losses.Add(loss);
}

std::int64_t Recovery::NewReference(std::string_view text)
{
    const auto [place, isNew] = m_OwnTexts.emplace(text, 0);
    if (isNew) place->second = m_NewTexts.Add(text);
    return place->second;
}

// Whether the reference leads to a text; a reference to an empty one stands there when it does not.
bool Recovery::RenewText(std::string& bytes, std::int64_t place)
{
    const double old = Load<double>(bytes, place);
    const std::optional<std::string_view> text = m_Texts->Find(old);
    if (!text)
    {
        Store(bytes, place, static_cast<double>(NewReference("")));
        return false;
    }
    const auto [renewed, isNew] = m_References.emplace(old, 0);
    if (isNew) renewed->second = m_NewTexts.Add(*text);
    Store(bytes, place, static_cast<double>(renewed->second));
    return true;
}

void Recovery::WriteLayouts()
{
    SpaceWriter writer = m_Target->Layouts();
    std::string head(rfm_MetadataFirstRecord, '\0');
    Store(head, 0, rfm_MetadataPoolMagic);
    writer.Write(head.data(), head.size());
    std::int64_t next = rfm_MetadataFirstRecord;
    for (auto& [place, layout] : m_Layouts->All())
    {
        std::string record(rfm_MetadataHeadBytes + layout.fields.size() * rfm_MetadataFieldBytes, '\0');
        Store(record, 0, static_cast<std::int32_t>(record.size()));
        Store(record, 4, static_cast<double>(NewReference(layout.name)));
        std::int64_t field = rfm_MetadataHeadBytes;
        for (const SalvagedLayout::FieldOfRow& each : layout.fields)
        {
            Store(record, field, static_cast<std::int32_t>(each.type));
            Store(record, field + 4, static_cast<double>(NewReference(each.name)));
            field += rfm_MetadataFieldBytes;
        }
        writer.Write(record.data(), record.size());
        layout.newPlace = static_cast<int>(next);
        next += static_cast<std::int64_t>(record.size());
    }
    writer.Flush();
}

// ---- Objects ----

void Recovery::Copy(const SalvagedSpace& space)
{
    m_Handle = space.handle;
    m_IsCut = space.isCut;
    m_Bytes.emplace(m_Image, space.extents);
    m_Writer.reset();
    const std::int64_t length = m_Bytes->Length();
    if (length == 0 && space.isCut)
        return m_Losses.Add({m_Handle, space.entryOffset, "the object", "none of its bytes can be found"});
    if (length < 4 || !CopyByMark(static_cast<std::uint32_t>(m_Bytes->Int(0)))) Space();
    if (m_Writer) m_Writer->Flush();
    m_Writer.reset();
    m_Progress.Advance(length);
}

bool Recovery::CopyByMark(std::uint32_t mark)
{
    const int head = mark == rfm_TableMagic   ? rfm_TableFirstRowOffset
                     : mark == rfm_ArrayMagic ? rfm_ArrayFirstRowOffset
                                              : rfm_StreamFirstItemOffset;
    if (mark != rfm_TableMagic && mark != rfm_ArrayMagic && mark != rfm_TaggedStreamMagic) return false;
    if (!m_Bytes->IsReadable(0, head))
    {
        Lose(0, "the object", "its header can't be read");
        return true;
    }
    if (mark == rfm_TableMagic)
        Table();
    else if (mark == rfm_ArrayMagic)
        Array();
    else
        Stream();
    return true;
}

void Recovery::AddToRun(std::int64_t number, const char* one, const char* many, std::int64_t place)
{
    if (m_RunCount > 0 && m_RunFirst + m_RunCount != number) LoseRun(one, many);
    if (m_RunCount++ > 0) return;
    m_RunFirst = number;
    m_RunPlace = place;
}

void Recovery::LoseRun(const char* one, const char* many)
{
    if (m_RunCount > 0)
        Lose(m_RunPlace,
             m_RunCount == 1 ? fmt::format("{} {}", one, m_RunFirst)
                             : fmt::format("{} {} to {}", many, m_RunFirst, m_RunFirst + m_RunCount - 1),
             "the bytes can't be read");
    m_RunCount = 0;
}

// ---- Tables ----

// By the place that its header has; when nothing is there, the only one that all its rows fit.
const SalvagedLayout* Recovery::LayoutOfTable()
{
    const int place = m_Bytes->Int(kTableLayoutOffset);
    if (const SalvagedLayout* layout = m_Layouts->Find(place); layout != nullptr) return layout;
    const SalvagedLayout* fitting = nullptr;
    int count = 0;
    for (const auto& [each, layout] : m_Layouts->All())
    {
        if (m_TrialsLeft == 0) break;
        --m_TrialsLeft;
        if (!Fits(layout)) continue;
        fitting = &layout;
        ++count;
    }
    if (count == 1 && m_TrialsLeft > 0)
    {
        m_Losses.Add(
            {m_Handle, m_Bytes->FileOffset(kTableLayoutOffset), "layout of the table",
             fmt::format("found {}, where none is; its rows fit {} alone", place, OneLine(fitting->name)),
             false});
        return fitting;
    }
    Lose(kTableLayoutOffset, "the table",
         count == 0
             ? fmt::format("its layout would be at {}, where none can be read", place)
             : fmt::format("its layout would be at {}, where none can be read, and its rows fit {} others",
                           place, count));
    return nullptr;
}

bool Recovery::Fits(const SalvagedLayout& layout)
{
    const std::int64_t rowBytes = layout.RowBytes();
    const std::int64_t bytes = m_Bytes->Length() - rfm_TableFirstRowOffset;
    if (layout.fields.empty() || bytes % rowBytes != 0) return false;
    const std::size_t used = layout.fields.size() % 32;
    const unsigned beyond = used == 0 ? 0 : ~0U << used;
    for (std::int64_t row = 0; row < std::min(bytes / rowBytes, kTriedRows); ++row)
    {
        const std::string image = BytesAt(*m_Bytes, rfm_TableFirstRowOffset + row * rowBytes, rowBytes);
        if ((Load<std::uint32_t>(image, (layout.WordCount() - 1) * 4) & beyond) != 0) return false;
        std::int64_t place = layout.WordCount() * 4;
        for (std::size_t i = 0; i < layout.fields.size(); ++i)
        {
            const int type = layout.fields[i].type;
            const bool isPresent =
                (Load<std::uint32_t>(image, static_cast<std::int64_t>(i / 32) * 4) >> (i % 32) & 1U) != 0;
            if (isPresent && type == rfm_TypeString && !m_Texts->Find(Load<double>(image, place)))
                return false;
            place += FieldBytes(type);
        }
    }
    return true;
}

void Recovery::Table()
{
    const SalvagedLayout* layout = LayoutOfTable();
    if (layout == nullptr) return;
    Begin();
    std::string head = BytesAt(*m_Bytes, 0, rfm_TableFirstRowOffset);
    Store(head, kTableLayoutOffset, layout->newPlace);
    Put(head);
    if (!layout->fields.empty()) Rows(*layout);
}

// A last row of which only a part is there counts when readers would count it.
void Recovery::Rows(const SalvagedLayout& layout)
{
    const std::int64_t rowBytes = layout.RowBytes();
    const std::int64_t length = std::min<std::int64_t>(m_Bytes->Length(), INT_MAX);
    const std::int64_t rows = rfm_RowsInSpace(length, rfm_TableFirstRowOffset, rowBytes);
    for (std::int64_t row = 0; row < rows; ++row)
    {
        const std::int64_t place = rfm_TableFirstRowOffset + row * rowBytes;
        std::string bytes = BytesAt(*m_Bytes, place, rowBytes);
        if (!Row(layout, row, bytes, std::min(rowBytes, length - place))) AddToRun(row, "row", "rows", place);
        Put(bytes);
    }
    LoseRun("row", "rows");
    const std::int64_t rest = (length - rfm_TableFirstRowOffset) % rowBytes;
    if (m_IsCut || rest != 0 || m_Bytes->Length() > length)
        Lose(length,
             fmt::format("rows from {} on", rest == 0 ? rows : (length - rfm_TableFirstRowOffset) / rowBytes),
             rest == 0 ? "the bytes can't be found"
                       : fmt::format("only {} of {} bytes are there", rest, rowBytes));
}

// What of a row can be kept, of whose bytes `there` are there. False when nothing can.
bool Recovery::Row(const SalvagedLayout& layout, std::int64_t row, std::string& bytes, std::int64_t there)
{
    const std::int64_t start = rfm_TableFirstRowOffset + row * layout.RowBytes();
    const std::int64_t words = layout.WordCount() * 4;
    if (!m_Bytes->IsReadable(start, words))
    {
        bytes.assign(bytes.size(), '\0');
        return false;
    }
    const bool isReadable = m_Bytes->IsReadable(start, there);
    std::int64_t place = words;
    bool isLost = false;
    for (std::size_t i = 0; i < layout.fields.size(); ++i)
    {
        const std::int64_t wordPlace = static_cast<std::int64_t>(i / 32) * 4;
        const std::uint32_t word = Load<std::uint32_t>(bytes, wordPlace);
        const std::uint32_t bit = 1U << (i % 32);
        const std::int64_t size = FieldBytes(layout.fields[i].type);
        const bool isThere =
            place + size <= there && (isReadable || m_Bytes->IsReadable(start + place, size));
        const bool isPresent = (word & bit) != 0;
        bool isKept = isPresent && isThere;
        if (isPresent && !isThere) isLost = true;
        if (isKept && layout.fields[i].type == rfm_TypeString)
        {
            const double old = Load<double>(bytes, place);
            isKept = RenewText(bytes, place);
            if (!isKept)
                Lose(start + place, fmt::format("row {}, {}", row, OneLine(layout.fields[i].name)),
                     ReferenceText(old) + ", where no text can be read");
        }
        if (!isKept)
        {
            std::fill_n(bytes.begin() + place, size, '\0');
            Store(bytes, wordPlace, word & ~bit);
        }
        place += size;
    }
    // Bits behind those of the fields mean nothing.
    if (const std::size_t used = layout.fields.size() % 32; used != 0)
    {
        const std::uint32_t word = Load<std::uint32_t>(bytes, words - 4);
        const std::uint32_t kept = word & ~(~0U << used);
        if (kept != word)
            m_Losses.Add({m_Handle, m_Bytes->FileOffset(start + words - 4),
                          fmt::format("row {}, presence bits", row),
                          "some were set behind those of the fields", false});
        Store(bytes, words - 4, kept);
    }
    return !isLost || there < layout.RowBytes();
}

// ---- Arrays ----

void Recovery::Array()
{
    std::string head = BytesAt(*m_Bytes, 0, rfm_ArrayFirstRowOffset);
    const int type = Load<std::int32_t>(head, 8);
    std::int64_t columns = Load<std::int32_t>(head, 12);
    const int bytes = type == rfm_TypeHandle ? 0 : FieldBytes(type);
    if (bytes == 0)
        return Lose(8, "the array", fmt::format("its elements are of type {}, which is none", type));
    const std::int64_t elements = (m_Bytes->Length() - rfm_ArrayFirstRowOffset) / bytes;
    if (columns < 0 || (columns == 0 && elements > 0) || (columns > 1 && columns > elements && elements > 0))
    {
        Lose(12, "shape of the array",
             fmt::format("{} elements in a row of {} in all; they stand one in a row", columns, elements));
        columns = 1;
        Store(head, 12, std::int32_t{1});
    }
    Begin();
    Put(head);
    if (columns > 0) Elements(type, columns);
}

// What an element is that can't be read.
std::string LostElement(int type)
{
    std::string bytes(static_cast<std::size_t>(FieldBytes(type)), '\0');
    if (type == rfm_TypeFloat) Store(bytes, 0, std::numeric_limits<float>::quiet_NaN());
    if (type == rfm_TypeDouble) Store(bytes, 0, std::numeric_limits<double>::quiet_NaN());
    return bytes;
}

void Recovery::Elements(int type, std::int64_t columns)
{
    const std::int64_t size = FieldBytes(type);
    const std::int64_t elements = (m_Bytes->Length() - rfm_ArrayFirstRowOffset) / size;
    const std::int64_t inPiece = kPieceBytes / size;
    const std::string lost = LostElement(type);
    for (std::int64_t first = 0; first < elements; first += inPiece)
    {
        const std::int64_t count = std::min(inPiece, elements - first);
        const std::int64_t start = rfm_ArrayFirstRowOffset + first * size;
        std::string bytes = BytesAt(*m_Bytes, start, count * size);
        const bool isReadable = m_Bytes->IsReadable(start, count * size);
        for (std::int64_t i = 0; i < count && (!isReadable || type == rfm_TypeString); ++i)
        {
            const std::int64_t element = first + i;
            const std::int64_t place = start + i * size;
            const bool isThere = isReadable || m_Bytes->IsReadable(place, size);
            const double old = type == rfm_TypeString ? Load<double>(bytes, i * size) : 0;
            if (!isThere)
            {
                bytes.replace(static_cast<std::size_t>(i * size), lost.size(), lost);
                AddToRun(element, "element", "elements", place);
            }
            if (type == rfm_TypeString && !RenewText(bytes, i * size) && isThere)
                Lose(place, fmt::format("row {}, element {}", element / columns, element % columns),
                     ReferenceText(old) + ", where no text can be read");
        }
        Put(bytes);
    }
    LoseRun("element", "elements");
    // A row that is not whole is filled up.
    const std::int64_t missing = (columns - elements % columns) % columns;
    for (std::int64_t i = 0; i < missing; ++i)
    {
        std::string bytes = lost;
        if (type == rfm_TypeString) Store(bytes, 0, static_cast<double>(NewReference("")));
        Put(bytes);
    }
    const std::int64_t rest = (m_Bytes->Length() - rfm_ArrayFirstRowOffset) % size;
    if (m_IsCut || missing > 0 || rest > 0)
        Lose(rfm_ArrayFirstRowOffset + elements * size, fmt::format("elements from {} on", elements),
             "the bytes can't be found");
}

// ---- Streams ----

void Recovery::Stream()
{
    Begin();
    Put(BytesAt(*m_Bytes, 0, rfm_StreamFirstItemOffset));
    std::int64_t place = rfm_StreamFirstItemOffset;
    std::int64_t item = 0;
    while (place < m_Bytes->Length() && Item(item, place)) ++item;
    if (place < m_Bytes->Length())
        Lose(place, fmt::format("items from {} on", item), "where one ends can't be known");
    else if (m_IsCut)
        Lose(place, fmt::format("items from {} on", item), "the bytes can't be found");
}

// False at one that is no item, or not whole.
bool Recovery::Item(std::int64_t item, std::int64_t& place)
{
    if (!m_Bytes->IsReadable(place, kItemHeadBytes + 4)) return false;
    const int type = m_Bytes->Int(place);
    const int first = m_Bytes->Int(place + kItemHeadBytes);
    const std::int64_t size =
        kItemHeadBytes +
        (type == rfm_TypeFixedString ? 4 + std::max<std::int64_t>(first, 0) : std::int64_t{FieldBytes(type)});
    if (size == kItemHeadBytes || !m_Bytes->IsReadable(place, size)) return false;
    std::string bytes = BytesAt(*m_Bytes, place, size);
    if (type == rfm_TypeString)
    {
        const double old = Load<double>(bytes, kItemHeadBytes);
        if (!RenewText(bytes, kItemHeadBytes))
            Lose(place + kItemHeadBytes, fmt::format("item {}", item),
                 ReferenceText(old) + ", where no text can be read");
    }
    Put(bytes);
    place += size;
    return true;
}

// ---- Spaces ----

void Recovery::Space()
{
    Begin();
    const std::int64_t length = m_Bytes->Length();
    for (std::int64_t place = 0; place < length; place += kPieceBytes)
    {
        const std::int64_t count = std::min(kPieceBytes, length - place);
        Put(BytesAt(*m_Bytes, place, count));
        const std::int64_t judged = m_Bytes->IsReadable(place, count) ? 0 : count;
        for (std::int64_t i = 0; i < judged; ++i)
            if (!m_Bytes->IsReadable(place + i, 1)) AddToRun(place + i, "byte", "bytes", place + i);
    }
    LoseRun("byte", "bytes");
    if (m_IsCut) Lose(length, fmt::format("bytes from {} on", length), "they can't be found");
}
} // namespace

std::int64_t WriteRecovered(FileImage& image, FileKind kind, const std::string& path, LossList& losses,
                            Progress& progress)
{
    return Recovery(image, losses, progress).Run(kind, path);
}

bool LooksLikeDatabase(FileImage& image)
{
    const auto leadsTo = [&](std::uint32_t handle, std::uint32_t magic)
    {
        char bytes[rfm_LinkageEntryBytes];
        rfm_LinkageEntry entry;
        image.Read(rfm_FirstLinkageBlockOffset + std::int64_t{handle} * rfm_LinkageEntryBytes, bytes,
                   sizeof bytes);
        if (!rfm_DecodeLinkageEntry(bytes, kSwapped, entry) || !entry.HasExtent() ||
            entry.offset > image.Size())
            return false;
        image.Read(entry.offset, bytes, 4);
        return omi_Load<std::uint32_t>(bytes, kSwapped) == magic;
    };
    return leadsTo(rfm_StringPoolHandle, rfm_StringPoolMagic) ||
           leadsTo(rfm_MetadataPoolHandle, rfm_MetadataPoolMagic);
}
} // namespace rfm_tool
