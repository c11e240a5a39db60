// Whole-file copies of a database that a power cut never leaves half-made.
#ifndef KELO_SQLITE3_COPY_HPP
#define KELO_SQLITE3_COPY_HPP

namespace kelo::store {

// Copies a database file over another with the shell's `cp` and syncs the copy to storage. Until then what
// the target held stays under "<target>-previous", locked, so that others neither see a half-made copy nor
// take it for an interrupted one. A copy that did not come out whole is undone.
void copy_database(const char* source, const char* target);

// Puts back what `target` held before a copy that a crash interrupted. A copy that another process is making
// is waited for. To be called before the file is opened.
void undo_interrupted_copy(const char* target);

// Makes a new name in the directory of `path` survive a power cut.
void sync_directory_of(const char* path);

// Whether both files lie in the same directory.
bool same_directory(const char* path, const char* other);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_COPY_HPP
