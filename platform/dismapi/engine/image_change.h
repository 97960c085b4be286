// image_change.h - changes to an image's files that happen together or not at all.
#pragma once

#include "servicing_error.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kestro::servicing {

// Everything new is prepared in a folder of the image. Commit writes a journal there, from when on the
// change is to be finished: it moves everything into place and removes the folder. A failure takes all
// of it back; a process that is killed leaves folder and journal, and the next change finishes what was
// begun, or takes it back where that was begun. Without a journal nothing of the image has changed.
class ImageChange {
  public:
    // When a step is done among the others: what makes a package exist comes last and goes first.
    enum class Order { PublishedAway, Away, Files, Hives, Published };

    // Clears away what a killed process left in the folder.
    ImageChange(std::filesystem::path root, std::filesystem::path folder);
    // Forgets what was not committed.
    ~ImageChange();
    ImageChange(const ImageChange&) = delete;
    ImageChange& operator=(const ImageChange&) = delete;

    // A place in the folder for something new. The folder itself is made with the first of them.
    std::filesystem::path NewPath();
    // Puts a file or folder from NewPath where `target` is, in the place of what is there.
    void Place(const std::filesystem::path& staged, const std::filesystem::path& target,
               Order order = Order::Files);
    void CopyTo(const std::filesystem::path& source, const std::filesystem::path& target,
                Order order = Order::Files);
    // Takes a file or a folder with all that is in it away; nothing happens if it is not there.
    void Remove(const std::filesystem::path& target, Order order = Order::Away);
    // Takes back what was asked for the path and below it.
    void Forget(const std::filesystem::path& target);

    // What will be at `target`: where its content is now, or an empty path if nothing will be there.
    std::filesystem::path Now(const std::filesystem::path& target) const;
    // The names that will be in a folder which has `names` now.
    std::set<std::string> NamesIn(const std::filesystem::path& folder,
                                  std::set<std::string> names) const;

    bool IsEmpty() const { return steps_.empty(); }
    void Commit();

  private:
    struct Step {
        enum class Kind { Place, Remove, MakeFolder };
        Kind kind;
        std::string number; // names its places in the folder
        std::filesystem::path target;
        Order order;
        unsigned turn = 0; // among those of one order
    };
    using Steps = std::vector<Step>;

    std::filesystem::path StagedOf(const Step& step) const
    {
        return folder_ / ("new" + step.number);
    }
    std::filesystem::path OldOf(const Step& step) const { return folder_ / ("old" + step.number); }
    void AddStep(Step::Kind kind, const std::string& number, const std::filesystem::path& target,
                 Order order);
    const Step* FindStep(const std::filesystem::path& target) const;
    void FinishInterrupted();
    Steps ReadJournal(const std::filesystem::path& journal) const;
    std::string JournalText(const Steps& steps) const;
    Steps StepsInOrder() const;
    void Do(const Step& step) const;
    void Undo(const Step& step) const;
    void TakeBack(const Steps& steps);
    void MakeFolder();
    void RemoveFolder();

    std::filesystem::path root_;
    std::filesystem::path folder_;
    std::map<std::string, Step> steps_;       // by their targets
    std::vector<std::filesystem::path> made_; // folders above the change's own, innermost first
    unsigned next_ = 0;
};

// Runs `work`; what the standard library throws about files comes out as a ServicingError.
template <class Work>
auto WithFileErrors(const Work& work)
{
    try {
        return work();
    } catch (const std::filesystem::filesystem_error& error) {
        throw ServicingError(CodeOfErrno(error.code().value()), error.what());
    }
}

} // namespace kestro::servicing
