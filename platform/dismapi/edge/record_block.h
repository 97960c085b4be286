// record_block.h - records as the API hands them out: one block of memory with everything that they point to,
// which the caller gives back with DismDelete.
#pragma once

#include "servicing_api.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace kestro::servicing {

// Throws std::bad_alloc. The block is known as handed out from here on.
void* HandOut(const std::vector<char>& content,
              const std::vector<std::pair<std::size_t, std::size_t>>& links);
// False for memory that did not come from here or was given back already.
bool TakeBack(void* block);

void AppendText(std::vector<char>& bytes, const std::string& text);
DismString* MakeString(const std::string& text);

// Gathers records and what they point to, then makes one block of them.
template <class Record>
class RecordBlock {
  public:
    Record& Add()
    {
        records_.emplace_back();
        return records_.back();
    }
    // Makes the pointer at that offset of the newest record lead to the text.
    void SetText(std::size_t offset, const std::string& text)
    {
        fields_.push_back({FieldAt(offset), behind_.size()});
        AppendText(behind_, text);
    }
    void SetTexts(std::size_t offset, const std::vector<std::string>& texts)
    {
        const std::size_t array = behind_.size();
        fields_.push_back({FieldAt(offset), array});
        behind_.resize(array + texts.size() * sizeof(DismString));
        for (std::size_t i = 0; i < texts.size(); ++i) {
            inner_.push_back({array + i * sizeof(DismString), behind_.size()});
            AppendText(behind_, texts[i]);
        }
    }
    template <class Other>
    void SetRecord(std::size_t offset, const Other& record)
    {
        fields_.push_back({FieldAt(offset), behind_.size()});
        const auto* const bytes = reinterpret_cast<const char*>(&record);
        behind_.insert(behind_.end(), bytes, bytes + sizeof record);
    }

    Record* Make() const
    {
        const auto* const bytes = reinterpret_cast<const char*>(records_.data());
        std::vector<char> content(bytes, bytes + records_.size() * sizeof(Record));
        content.resize((content.size() + 7) / 8 * 8);
        const std::size_t start = content.size();
        content.insert(content.end(), behind_.begin(), behind_.end());
        Links links;
        for (const auto& [field, target] : fields_)
            links.emplace_back(field, start + target);
        for (const auto& [field, target] : inner_)
            links.emplace_back(start + field, start + target);
        return static_cast<Record*>(HandOut(content, links));
    }

  private:
    using Links =
        std::vector<std::pair<std::size_t, std::size_t>>; // where the pointer lies, and leads

    std::size_t FieldAt(std::size_t offset) const
    {
        return (records_.size() - 1) * sizeof(Record) + offset;
    }

    std::vector<Record> records_;
    std::vector<char> behind_;
    Links fields_; // from the records
    Links inner_;  // from what lies behind them
};

} // namespace kestro::servicing
