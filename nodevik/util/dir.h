/// @file
/// Reads a directory into memory, walks it by file type and prints it.

#ifndef NODEVIK_UTIL_DIR_H
#define NODEVIK_UTIL_DIR_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "nodevik/util/export.h"

/// Which entries dir::getnext() and dir::ls() let pass.
enum typefilter : unsigned int {
    tf_none = 0,    ///< every entry
    tf_file = 1,    ///< regular files
    tf_dir = 2,     ///< directories
    tf_link = 3,    ///< nothing: types are read through symbolic links, so no entry is one
    tf_char = 4,    ///< character devices
    tf_block = 5,   ///< block devices
    tf_fifo = 6,    ///< FIFOs
    tf_socket = 7,  ///< sockets
};

/// One directory, read at once: the names and types of its entries without "." and "..", in the system's
/// order.
///
/// Types follow symbolic links. An entry whose type could not be read (a dangling link, or one that has
/// vanished) has the mode 0, which only #tf_none lets pass.
///
/// @note Reading a directory makes it the working directory of the whole process, which every thread sees.
class NODEVIK_EXPORT dir {
public:
    /// An empty listing of ".".
    dir();
    virtual ~dir();
    /// Copies the listing, the filter and the walk.
    dir(const dir&) = default;
    /// Copies the listing, the filter and the walk.
    dir& operator=(const dir&) = default;

    /// Reads the directory @p path and makes it the process's working directory.
    ///
    /// A path that cannot be entered leaves the listing as it was, without a message. One that can be entered
    /// but not read empties it and prints "Couldn't open directory %s\n". An entry whose status cannot be
    /// read prints "Error occoured attempting to stat %s\n" and is kept with mode 0; the reason follows on
    /// standard error, headed by "Error reading directory", when the next entry is read.
    ///
    /// @param path  directory, absolute or from the working directory
    /// @return 1, or 0 on failure
    /// @see realpath(3), chdir(2), readdir(3), stat(2)
    int cd(char* path);

    /// Prints the entries that pass the type filter, a line each: the kind padded to 16 columns (nothing
    /// where the type could not be read), then the name.
    ///
    /// Starts the walk of getnext() anew before and after.
    ///
    /// @param filter  text that the name must contain, or null for every name
    /// @return 1
    int ls(char* filter);

    /// Number of entries.
    unsigned int count();

    /// Name of an entry.
    ///
    /// @param pos  0 to count() - 1
    /// @return the name, valid until the next call; the empty string past the last entry
    std::string& operator[](unsigned int pos);

    /// Mode of an entry as in stat(2).
    ///
    /// @param pos  0 to count() - 1
    /// @return the mode; 0 when it could not be read and past the last entry
    unsigned int ftype(unsigned int pos);

    /// Starts the walk of getnext() anew.
    void resetnext();

    /// Takes the next entry that passes the type filter.
    ///
    /// @param[out] name  the entry's name
    /// @param[out] mode  the entry's mode
    /// @return true, or false with both arguments untouched when no entry is left
    bool getnext(std::string& name, unsigned int& mode);

    /// Chooses which entries pass from now on. A value that is no member lets none pass.
    void settypefilter(typefilter t);

private:
    NODEVIK_LOCAL bool passes(unsigned int mode) const;

    std::string dirname;      // absolute path of the directory last read
    std::string filename;     // what operator[] returned last
    unsigned int dirpos = 0;  // where getnext() goes on
    typefilter tf = tf_none;
    std::vector<std::string> dirlist;
    std::vector<unsigned int> typelist;
};

#endif
