#pragma once

#include "cow_String.h"

/// Takes the URL of a remote database apart:
///
///     mrkrdb:// HOST [ : PORT ] [ / [ PATH ] ]
///
/// The host ends at the first "/", and the path is everything behind that, so a path from the root begins with a second
/// one. The port is what follows the last ":" in front of the path, one to five digits up to 65535; anything else that
/// stands there is no port and belongs to the host, which then is nobody's name. A host that itself holds colons is
/// written in brackets where no port follows, and they are part of its text. No text is changed or decoded.
///
/// A text that is no URL has nothing, and each `Get` of what is not there answers the empty string.
class utl_UrlParser
{
public:
    static bool IsUrl(const cow_String& text);
    static bool HasHost(const cow_String& url);
    static bool HasPort(const cow_String& url);
    static bool HasPath(const cow_String& url);
    static cow_String GetHost(const cow_String& url);
    static cow_String GetPort(const cow_String& url);
    static cow_String GetPath(const cow_String& url);
};
