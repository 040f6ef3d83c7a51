#include "servers/storage/storage_error.h"

#include <cerrno>

namespace
{

struct Meaning
{
    int errnum;
    Storage_Failure failure;
};

constexpr Meaning meanings[] = {
    {ENOENT, Storage_Failure::not_found},
    {EISDIR, Storage_Failure::is_collection},
    {ENOTDIR, Storage_Failure::not_collection},
    {EEXIST, Storage_Failure::exists},
    {ENOTEMPTY, Storage_Failure::not_empty},
    {ENOSPC, Storage_Failure::no_space},
    {EDQUOT, Storage_Failure::no_space},
    {EFBIG, Storage_Failure::no_space},
    {ENAMETOOLONG, Storage_Failure::bad_path},
    {ELOOP, Storage_Failure::bad_path}, // also a way out, see Confined_Root
    {EACCES, Storage_Failure::denied},
    {EPERM, Storage_Failure::denied},
    {EROFS, Storage_Failure::denied},
    {ETXTBSY, Storage_Failure::denied},
};

} // namespace

Storage_Result storage_error(int errnum)
{
    for (const Meaning& meaning : meanings)
        if (meaning.errnum == errnum)
            return {meaning.failure, errnum};
    return {Storage_Failure::failed, errnum};
}
