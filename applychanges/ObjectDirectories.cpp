#include "applychanges/ObjectDirectories.h"

#include <cerrno>
#include <cstdlib>

ObjectDirectories::ObjectDirectories(bool verbose) : m_verbose(verbose) {}

ObjectDirectory* ObjectDirectories::directory(const std::string& path)
{
    auto named = m_byName.find(path);
    if (named != m_byName.end())
        return named->second;
    char* resolved = realpath(path.c_str(), nullptr);
    const std::string key = resolved ? resolved : path;
    free(resolved);
    auto found = m_byRealPath.find(key);
    if (found != m_byRealPath.end())
        return m_byName[path] = found->second.get();
    std::unique_ptr<ObjectDirectory> opened(new ObjectDirectory);
    if (!opened->open(path))
        return nullptr;
    ObjectDirectory* result = opened.get();
    m_byRealPath[key] = std::move(opened);
    return m_byName[path] = result;
}

TemporaryDirectory* ObjectDirectories::temporaryDirectory(ObjectDirectory& directory, std::ostream& out,
                                                          std::ostream& err)
{
    auto found = m_temporary.find(&directory);
    if (found != m_temporary.end())
        return found->second.get();
    std::unique_ptr<TemporaryDirectory> created(new TemporaryDirectory(directory));
    if (!created->open(err))
        return nullptr;
    created->removeLeftovers(out, m_verbose);
    TemporaryDirectory* result = created.get();
    m_opened.insert(result);
    m_temporary[&directory] = std::move(created);
    return result;
}
