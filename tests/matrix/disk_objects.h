// disk_objects.h - the objects of the scripted disk service up to the disk, their methods in the order
// of the published interfaces.
#pragma once

#include "matrix/disk_service.h"

#include <cstring>
#include <functional>

namespace kestro::test {

std::string NameOfId(const GUID& id);

inline HRESULT Answer(const std::string& function, const std::string& arguments)
{
    Platform& platform = Platform::Active();
    const HRESULT result = platform.NextAnswer(function);
    platform.Record(Format("%s(%s) -> %08X", function.c_str(), arguments.c_str(),
                           static_cast<unsigned>(result)));
    return result;
}

// What an object answers with when asked for another interface.
using Views = std::function<void*(const std::string& interface_name)>;

class Object {
  public:
    explicit Object(std::string name, Views views = nullptr)
        : name_(std::move(name)), views_(std::move(views))
    {
    }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** slot)
    {
        const std::string wanted = NameOfId(id);
        const HRESULT result = Answer(name_ + ".QueryInterface", wanted);
        *slot = result >= 0 && views_ ? views_(wanted) : nullptr;
        return result;
    }
    virtual ULONG STDMETHODCALLTYPE AddRef()
    {
        Platform::Active().Record(name_ + ".AddRef()");
        return 2;
    }
    virtual ULONG STDMETHODCALLTYPE Release()
    {
        Platform::Active().Record(name_ + ".Release()");
        return 1;
    }

    // Not reachable through the interfaces.
    const std::string& Name() const { return name_; }

  protected:
    HRESULT Unexpected() const { return Answer(name_ + ", a method of no use", ""); }

    std::string name_;

  private:
    Views views_;
};

#define METHOD_OF_NO_USE(name)                                                                     \
    virtual HRESULT STDMETHODCALLTYPE name()                                                       \
    {                                                                                              \
        return Unexpected();                                                                       \
    }

// What one enumerator hands out next: objects made on demand, as many as there are.
class Enumerator : public Object {
  public:
    Enumerator(std::string name, size_t count, bool gives_on_failure,
               std::function<Object*(size_t)> make)
        : Object(std::move(name)), count_(count), gives_on_failure_(gives_on_failure),
          make_(std::move(make))
    {
    }
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG wanted, IUnknown** slot, ULONG* fetched)
    {
        const std::string arguments = Format("%lu, slot of %lu", wanted, *fetched);
        *slot = nullptr;
        *fetched = 0;
        if (next_ == count_) {
            Platform::Active().Record(name_ + ".Next(" + arguments + ") -> 00000001");
            return S_FALSE;
        }
        const HRESULT result = Answer(name_ + ".Next", arguments);
        if (result == S_FALSE || (result < 0 && !gives_on_failure_))
            return result;
        *slot = reinterpret_cast<IUnknown*>(make_(next_++));
        *fetched = 1;
        return result;
    }
    METHOD_OF_NO_USE(Skip)
    METHOD_OF_NO_USE(Reset)
    METHOD_OF_NO_USE(Clone)

  private:
    size_t count_;
    bool gives_on_failure_;
    std::function<Object*(size_t)> make_;
    size_t next_ = 0;
};

class Async : public Object {
  public:
    using Object::Object;
    METHOD_OF_NO_USE(Cancel)
    virtual HRESULT STDMETHODCALLTYPE Wait(HRESULT* delivered, void* output)
    {
        static const char zeroes[32] = {};
        const HRESULT result =
            Answer(name_ + ".Wait", std::memcmp(output, zeroes, sizeof zeroes) ? "" : "zeroed");
        *delivered = Answer(name_ + ".Delivers", "");
        return result;
    }
    METHOD_OF_NO_USE(QueryStatus)
};

class AdvancedDisk : public Object {
  public:
    using Object::Object;
    METHOD_OF_NO_USE(GetPartitionProperties)
    METHOD_OF_NO_USE(QueryPartitions)
    METHOD_OF_NO_USE(CreatePartition)
    METHOD_OF_NO_USE(DeletePartition)
    METHOD_OF_NO_USE(ChangeAttributes)
    METHOD_OF_NO_USE(AssignDriveLetter)
    METHOD_OF_NO_USE(DeleteDriveLetter)
    METHOD_OF_NO_USE(GetDriveLetter)
    METHOD_OF_NO_USE(FormatPartition)
    virtual HRESULT STDMETHODCALLTYPE Clean(BOOL force, BOOL force_oem, BOOL full, void** async)
    {
        const HRESULT result =
            Answer(name_ + ".Clean", Format("%d, %d, %d, slot of %s", force, force_oem, full,
                                            *async ? "something" : "NULL"));
        const DiskWorld& world = DiskService::Active().World();
        if (result >= 0 ? world.async_on_success : world.async_on_failure)
            *async = DiskService::Active().Make<Async>("async of " + name_);
        return result;
    }
};

class DiskOnline : public Object {
  public:
    using Object::Object;
    virtual HRESULT STDMETHODCALLTYPE Online() { return Answer(name_ + ".Online", ""); }
    virtual HRESULT STDMETHODCALLTYPE Offline() { return Answer(name_ + ".Offline", ""); }
};

class Disk : public Object {
  public:
    Disk(std::string name, const std::wstring& text)
        : Object(name, [=](const std::string& wanted) { return View(wanted, name); }), text_(text)
    {
    }
    // Whatever it answers, the record is filled; only the name in it is of any use.
    virtual HRESULT STDMETHODCALLTYPE GetProperties(char* record)
    {
        constexpr size_t size = 128, name_offset = 96;
        const wchar_t* text = text_.c_str();
        std::memset(record, 0xEE, size);
        std::memcpy(record + name_offset, &text, sizeof text);
        return Answer(name_ + ".GetProperties", "");
    }
    METHOD_OF_NO_USE(GetPack)
    METHOD_OF_NO_USE(GetIdentificationData)
    METHOD_OF_NO_USE(QueryExtents)
    METHOD_OF_NO_USE(ConvertStyle)
    METHOD_OF_NO_USE(SetFlags)
    METHOD_OF_NO_USE(ClearFlags)

  private:
    static void* View(const std::string& wanted, const std::string& name)
    {
        if (wanted == "IVdsAdvancedDisk")
            return DiskService::Active().Make<AdvancedDisk>("advanced " + name);
        if (wanted == "IVdsDiskOnline")
            return DiskService::Active().Make<DiskOnline>("online " + name);
        return nullptr;
    }

    const std::wstring& text_;
};

} // namespace kestro::test
