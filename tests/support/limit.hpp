// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

namespace test {

// During its lifetime, limits a resource of the process.
class Limit
{
public:
    Limit(__rlimit_resource resource, rlim_t most)
        : mResource(resource)
    {
        getrlimit(resource, &mFormer);
        const rlimit limit{most, mFormer.rlim_max};
        setrlimit(resource, &limit);
    }
    ~Limit() { setrlimit(mResource, &mFormer); }

private:
    __rlimit_resource mResource;
    rlimit mFormer{};
};

} // namespace test
