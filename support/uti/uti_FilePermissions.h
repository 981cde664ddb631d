#pragma once

/// The rights that a file gives to everyone: 4 to read, 2 to write, 1 to run it; 0 for none. A symbolic link stands for what
/// it points to.
/// Throws: utl_FileException when the file can't be looked at; nothing then says that it is safe.
unsigned long uti_GetFilePermissionsForEveryone(const char* path);
