// command_line_images.cpp - the commands of images: their files, mounts and drivers.
#include "command_line_parts.h"

namespace kestro::host {

void CommandLine::AddInjectCommand()
{
    Arguments& to = *arguments_;
    auto* const inject = app_.add_subcommand(
        "inject", "Put driver packages into an image file: mount, add, save, unmount");
    inject->add_option("IMAGE", to.image, "the image file")->required();
    inject->add_option("INF", to.infs, "INF files, and directories to search for them")->required();
    inject->add_option("--index", to.inject.index,
                       "the image's number or name, or all (default: the first)");
    inject->add_flag("--dry-run", to.inject.dryRun, "only say what would be done");
    inject->add_option("--scratch", to.scratch,
                       "an existing directory to mount in (default: the temporary folder)");
    inject->footer("Example: kestro inject D:\\boot.wim D:\\drivers --index 2");
    Choose(inject, [](const Context& context, const Arguments& a) {
        InjectFlags flags = a.inject;
        flags.scratch = Given(a.scratch);
        return InjectCommand(context, Given(a.image), Given(a.infs), flags);
    });
}

void CommandLine::AddImageCommands()
{
    Arguments& to = *arguments_;
    auto* const image = app_.add_subcommand("image", "Look at image files");
    image->require_subcommand(1);
    auto* const list = image->add_subcommand("list", "List the images of a file");
    list->add_option("FILE", to.image, "the image file")->required();
    list->footer("Example: kestro image list D:\\install.wim");
    Choose(list, [](const Context& context, const Arguments& a) {
        return ImageListCommand(context, Given(a.image));
    });
}

void CommandLine::AddMountCommands()
{
    Arguments& to = *arguments_;
    auto* const mount = app_.add_subcommand("mount", "Mount an image of an image file");
    mount->add_option("IMAGE", to.image, "the image file")->required();
    mount->add_option("DIR", to.directory, "an existing, empty directory")->required();
    mount->add_option("--index", to.mount.index, "the image's number or name (default: the first)");
    mount->add_flag("--read-only", to.mount.readOnly, "changes cannot be saved");
    mount->footer("Example: kestro mount D:\\install.wim D:\\mount");
    Choose(mount, [](const Context& context, const Arguments& a) {
        return MountCommand(context, Given(a.image), Given(a.directory), a.mount);
    });

    auto* const mounts = app_.add_subcommand("mounts", "List what is mounted");
    mounts->add_flag("--clean", to.clean, "first clear away what is broken");
    mounts->footer("Example: kestro mounts --clean");
    Choose(mounts, [](const Context& context, const Arguments& a) {
        return MountsCommand(context, a.clean);
    });

    auto* const unmount = app_.add_subcommand("unmount", "Unmount a directory");
    unmount->add_option("DIR", to.directory, "the mount directory")->required();
    auto* const how = unmount->add_option_group("how", "What becomes of the changes");
    how->add_flag("--commit", to.commit, "save the changes into the image file");
    how->add_flag("--discard", to.discard, "drop the changes");
    how->require_option(1);
    unmount->footer("Example: kestro unmount D:\\mount --commit");
    Choose(unmount, [](const Context& context, const Arguments& a) {
        return UnmountCommand(context, Given(a.directory), a.commit);
    });
}

void CommandLine::AddDriverCommands()
{
    Arguments& to = *arguments_;
    auto* const driver = app_.add_subcommand("driver", "Service the drivers of an offline image");
    driver->require_subcommand(1);

    auto* const add = driver->add_subcommand("add", "Add driver packages");
    add->add_option("IMAGE", to.image, "root directory of the mounted or offline image")
        ->required();
    add->add_option("INF", to.infs, "INF files, and directories to search for them")->required();
    add->footer("Example: kestro driver add D:\\mount D:\\drivers");
    Choose(add, [](const Context& context, const Arguments& a) {
        return DriverAddCommand(context, Given(a.image), Given(a.infs));
    });

    auto* const remove = driver->add_subcommand("remove", "Remove a driver package");
    remove->add_option("IMAGE", to.image, "root directory of the image")->required();
    remove->add_option("NAME", to.name, "its published name (oem0.inf)")->required();
    remove->footer("Example: kestro driver remove D:\\mount oem0.inf");
    Choose(remove, [](const Context& context, const Arguments& a) {
        return DriverRemoveCommand(context, Given(a.image), Given(a.name));
    });

    auto* const info = driver->add_subcommand("info", "Describe a driver package and its devices");
    info->add_option("IMAGE", to.image, "root directory of the image")->required();
    info->add_option("DRIVER", to.name, "a published name, or the path of an INF")->required();
    info->footer("Example: kestro driver info D:\\mount oem0.inf");
    Choose(info, [](const Context& context, const Arguments& a) {
        return DriverInfoCommand(context, Given(a.image), Given(a.name));
    });
}

void CommandLine::AddDriverListCommands()
{
    Arguments& to = *arguments_;
    CLI::App* const driver = app_.get_subcommand("driver");
    auto* const list = driver->add_subcommand("list", "List the third-party driver packages");
    list->add_option("IMAGE", to.image, "root directory of the image")->required();
    list->add_flag("--all", to.list.all, "also those that came with Windows");
    list->add_flag("--long", to.list.details, "class, provider, date, version, signature of each");
    list->footer("Example: kestro driver list D:\\mount --long");
    Choose(list, [](const Context& context, const Arguments& a) {
        return DriverListCommand(context, Given(a.image), a.list);
    });

    auto* const out = driver->add_subcommand("export", "Copy driver packages out of an image");
    out->add_option("IMAGE", to.image, "root directory of the image")->required();
    out->add_option("NAME", to.words, "published names, or all; then the directory to copy into")
        ->required()
        ->expected(2, -1);
    out->footer("The last word is the directory. Each package gets a folder there, as its maker "
                "published it.\n"
                "Example: kestro driver export D:\\mount oem0.inf D:\\exported");
    Choose(out, [](const Context& context, const Arguments& a) {
        std::vector<std::wstring> names = Given(a.words);
        const std::wstring directory = names.back();
        names.pop_back();
        return DriverExportCommand(context, Given(a.image), names, directory);
    });
}

} // namespace kestro::host
