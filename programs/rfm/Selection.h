#pragma once

#include "DatabaseFile.h"

#include <optional>
#include <string>
#include <vector>

// The OBJECT words of a command line, and what they choose.
//
//   9        0x9            the object with that handle; a word that is a number is never a name
//   NODES                   the tables with the layout of that name
//   N*   [!X]*   1?         every object whose name fits: a table's name is that of its layout, and each object has its
//                           decimal handle for a name too. The library's own objects (1, 2, 3) fit no glob
//   NODES.x  9.x  N*.d?     fields of these
//   6.0                     element 0 of the rows of array 6
//
// A dot belongs to the name of a table when there is such a table; otherwise what stands behind the last dot is the field.

namespace rfm_tool
{
/// A field of a table; an element in the rows of an array, which has its number for a name.
struct Field
{
    std::string name;
    int type = 0; // an rfm_Type
};
/// The fields of a table or an array in the order of their indexes: of a table ascending by name, which is the order in the
/// file, and what rfm_FieldHandle(index) takes on a table of `file`. Empty for other objects, and for an array without rows.
std::vector<Field> FieldsOf(DatabaseFile& file, const Object& object);

/// One object that was chosen, and which of its fields.
struct Selected
{
    Object object;
    std::optional<std::vector<int>>
        fields; // indexes into FieldsOf in the order asked for, each once; none: the whole object
};

/// What the words choose: in the order of the words, and of one word by handle. An object comes once; fields that several
/// words choose of it come together, and a word for the whole object outdoes them. A name without a glob stands for all
/// tables that have it. No words: all objects but the library's own.
/// Damaged objects come too, when a glob fits their handle or there are no words: look at `object.damage`.
/// Throws: Failure with ExitMissing for a word that chooses nothing, with a guess at what was meant; with ExitUnreadable for
/// a damaged object that was named by its handle.
std::vector<Selected> Select(DatabaseFile& file, const std::vector<std::string>& words);
/// The one object that a word chooses.
/// Throws: as `Select`, and for each damaged one; Failure with ExitUsage when there is more than one.
Selected SelectOne(DatabaseFile& file, const std::string& word);
/// Whether a word without a field would choose this object: for objects that come later.
bool Names(std::string_view word, const Object& object);
/// The fields that a list such as "id,x,d*" chooses of an object, as indexes into its fields, in the order asked for.
/// Throws: Failure with ExitMissing.
std::vector<int> SelectFields(DatabaseFile& file, const Object& object, const std::string& list);
} // namespace rfm_tool
