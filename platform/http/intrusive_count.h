#pragma once

/// What ACE_Intrusive_Auto_Ptr counts owners with. Not for objects that threads share.
template <class Object>
class Intrusive_Count
{
public:
    Intrusive_Count(const Intrusive_Count&) = delete;
    Intrusive_Count& operator=(const Intrusive_Count&) = delete;

    static void intrusive_add_ref(Object* object)
    {
        if (object != nullptr)
            ++object->owners_;
    }
    static void intrusive_remove_ref(Object* object)
    {
        if (object != nullptr && --object->owners_ == 0)
            destroy(object);
    }

    long owners() const { return owners_; }

protected:
    Intrusive_Count() = default;
    ~Intrusive_Count() = default;

private:
    // Inlined, GCC 12 takes every later use of another owner's pointer for one after the deletion.
    [[gnu::noinline]] static void destroy(Object* object) { delete object; }

    long owners_ = 0;
};
