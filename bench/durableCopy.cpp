// durableCopy: rewrites every given file durably, the way applyChanges replaces an object but
// without any DICOM work: read it, write the bytes to <dir>/.tmp/.durable.<name>, fsync,
// rename over the file, fsync the directory. The floor under any safe rewrite of a file.
//
//   durableCopy <file>...        or        durableCopy -d <dir>   (every regular file in it)

#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const size_t CHUNK = 1 << 20;

bool fail(const std::string& what, const std::string& path)
{
    fprintf(stderr, "durableCopy: %s %s (%s)\n", what.c_str(), path.c_str(), strerror(errno));
    return false;
}

bool syncPath(const std::string& path, bool directory)
{
    const int fd = open(path.c_str(), (directory ? O_DIRECTORY : 0) | O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = fsync(fd) == 0;
    close(fd);
    return ok;
}

bool copyDurably(const std::string& path, std::vector<char>& buffer)
{
    std::string dirCopy(path);
    std::string baseCopy(path);
    const std::string directory = dirname(&dirCopy[0]);
    const std::string tempDir = directory + "/.tmp";
    if (mkdir(tempDir.c_str(), 0755) != 0 && errno != EEXIST)
        return fail("cannot create", tempDir);
    const std::string temp = tempDir + "/.durable." + basename(&baseCopy[0]);

    const int in = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return fail("cannot open", path);
    const int out = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out < 0)
    {
        close(in);
        return fail("cannot create", temp);
    }
    bool ok = true;
    for (;;)
    {
        const ssize_t got = read(in, buffer.data(), buffer.size());
        if (got < 0)
        {
            ok = fail("cannot read", path);
            break;
        }
        if (got == 0)
            break;
        for (ssize_t done = 0; done < got;)
        {
            const ssize_t put = write(out, buffer.data() + done, size_t(got - done));
            if (put < 0)
            {
                ok = fail("cannot write", temp);
                break;
            }
            done += put;
        }
        if (!ok)
            break;
    }
    close(in);
    if (ok && fsync(out) != 0)
        ok = fail("cannot sync", temp);
    if (close(out) != 0 && ok)
        ok = fail("cannot close", temp);
    if (ok && rename(temp.c_str(), path.c_str()) != 0)
        ok = fail("cannot rename", temp);
    if (!ok)
    {
        unlink(temp.c_str());
        return false;
    }
    syncPath(directory, true);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    if (argc == 3 && strcmp(argv[1], "-d") == 0)
    {
        DIR* dir = opendir(argv[2]);
        if (!dir)
        {
            fail("cannot open", argv[2]);
            return 1;
        }
        while (struct dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.' && entry->d_type != DT_DIR)
                files.push_back(std::string(argv[2]) + "/" + entry->d_name);
        closedir(dir);
    }
    else
    {
        for (int i = 1; i < argc; ++i)
            files.push_back(argv[i]);
    }
    if (files.empty())
    {
        fprintf(stderr, "durableCopy <file>... | durableCopy -d <dir>\n");
        return 1;
    }
    std::vector<char> buffer(CHUNK);
    for (const std::string& file : files)
        if (!copyDurably(file, buffer))
            return 1;
    return 0;
}
