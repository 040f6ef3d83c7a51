#pragma once

#include <cstdint>
#include <vector>

/// Notes the hints that this process gives about files instead of passing them on, while it
/// exists. The test program's own posix_fadvise and sync_file_range stand before the system's.
class Page_Cache_Recorder
{
public:
    enum class Hint
    {
        sequential,
        fetch,
        store,
        forget,
    };

    struct Call
    {
        Hint hint;
        std::uint64_t offset;
        std::uint64_t size;

        bool operator==(const Call&) const = default;
    };

    Page_Cache_Recorder();
    ~Page_Cache_Recorder();
    Page_Cache_Recorder(const Page_Cache_Recorder&) = delete;
    Page_Cache_Recorder& operator=(const Page_Cache_Recorder&) = delete;

    /// From now on every hint is refused with this error number.
    void refuse(int result) { result_ = result; }
    int result() const { return result_; }

    /// The calls of one kind in their order.
    std::vector<Call> calls(Hint hint) const;
    bool empty() const { return calls_.empty(); }
    void add(Hint hint, std::int64_t offset, std::int64_t size);

private:
    std::vector<Call> calls_;
    int result_ = 0;
};
