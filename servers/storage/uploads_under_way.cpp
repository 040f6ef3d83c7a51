#include "servers/storage/uploads_under_way.h"

#include <chrono>
#include <utility>

namespace
{

void stop(Uploads_Under_Way::Entry& entry)
{
    const Uploads_Under_Way::Lock lock(entry.mutex);
    entry.superseded = true;
}

} // namespace

// Begins where no earlier process has been.
Uploads_Under_Way::Uploads_Under_Way()
    : last_version_(
          static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()))
{}

Uploads_Under_Way::Membership Uploads_Under_Way::begin(const File_Key& file)
{
    Membership membership;
    membership.entry = std::make_shared<Entry>();
    membership.lock = Lock(membership.entry->mutex);
    count_version(*membership.entry);
    std::shared_ptr<Entry> older;
    {
        const Lock table(mutex_);
        older = std::exchange(entries_[file], membership.entry);
    }
    if (older != nullptr)
        stop(*older);
    return membership;
}

void Uploads_Under_Way::end(const File_Key& file, const std::shared_ptr<Entry>& entry)
{
    const Lock table(mutex_);
    const auto found = entries_.find(file);
    if (found != entries_.end() && found->second == entry)
        entries_.erase(found);
}

void Uploads_Under_Way::supersede(const File_Key& file)
{
    std::shared_ptr<Entry> entry;
    {
        const Lock table(mutex_);
        const auto found = entries_.find(file);
        if (found == entries_.end())
            return;
        entry = std::move(found->second);
        entries_.erase(found);
    }
    stop(*entry);
}

void Uploads_Under_Way::count_version(Entry& entry)
{
    entry.version = ++last_version_;
}

std::uint64_t Uploads_Under_Way::version(const File_Key& file) const
{
    const Lock table(mutex_);
    const auto found = entries_.find(file);
    return found == entries_.end() ? 0 : found->second->version.load();
}

std::size_t Uploads_Under_Way::Hash::operator()(const File_Key& key) const
{
    return std::hash<std::uint64_t>()(key.file * 0x9E3779B97F4A7C15U + key.device);
}
