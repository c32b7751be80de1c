/* Preloaded into a program that does asynchronous I/O through libaio: tells what one pass costs.
 *
 * A pass lasts from the first io_submit to the return of the io_getevents that brings the last of
 * PASS_METER_REQUESTS events. The same library is loaded into whatever is compared, so that both
 * sides are timed by one clock and between the same two moments. The file PASS_METER_REPORT gets
 * one line of JSON:
 *
 *   wall         seconds
 *   cpu          user and system seconds of the process
 *   submits      calls of io_submit
 *   reaps        calls of io_getevents
 *   allocations  calls of malloc, calloc, realloc and the like, in all threads
 *   switches     voluntary context switches
 */
#include <dlfcn.h>
#include <errno.h>
#include <libaio.h>
#include <malloc.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);
extern void* __libc_memalign(size_t alignment, size_t size);

typedef int (*submit_function)(io_context_t, long, struct iocb**);
typedef int (*reap_function)(io_context_t, long, long, struct io_event*, struct timespec*);

static atomic_int started;
static atomic_long allocations, submits, reaps, events;
static struct timespec begin_time;
static struct rusage begin_usage;
static long long expected;
static submit_function real_submit;
static reap_function real_reap;

__attribute__((constructor)) static void prepare(void)
{
    const char* requests = getenv("PASS_METER_REQUESTS");
    expected = requests ? atoll(requests) : 0;
    real_submit = (submit_function)dlsym(RTLD_NEXT, "io_submit");
    real_reap = (reap_function)dlsym(RTLD_NEXT, "io_getevents");
}

static double seconds(struct timeval time)
{
    return (double)time.tv_sec + (double)time.tv_usec / 1e6;
}

static double processor_seconds(const struct rusage* usage)
{
    return seconds(usage->ru_utime) + seconds(usage->ru_stime);
}

static void report(void)
{
    struct timespec end;
    struct rusage usage;
    clock_gettime(CLOCK_MONOTONIC, &end);
    getrusage(RUSAGE_SELF, &usage);
    const long counted = atomic_load(&allocations);
    const char* path = getenv("PASS_METER_REPORT");
    FILE* file = path ? fopen(path, "w") : NULL;
    if (!file)
        return;
    fprintf(file,
            "{\"wall\": %.9f, \"cpu\": %.6f, \"submits\": %ld, \"reaps\": %ld, "
            "\"allocations\": %ld, \"switches\": %ld}\n",
            (double)(end.tv_sec - begin_time.tv_sec) +
                (double)(end.tv_nsec - begin_time.tv_nsec) / 1e9,
            processor_seconds(&usage) - processor_seconds(&begin_usage), atomic_load(&submits),
            atomic_load(&reaps), counted, usage.ru_nvcsw - begin_usage.ru_nvcsw);
    fclose(file);
}

int io_submit(io_context_t context, long count, struct iocb** blocks)
{
    int none = 0;
    if (!atomic_load_explicit(&started, memory_order_relaxed) &&
        atomic_compare_exchange_strong(&started, &none, 1)) {
        getrusage(RUSAGE_SELF, &begin_usage);
        clock_gettime(CLOCK_MONOTONIC, &begin_time);
        atomic_store(&allocations, 0);
    }
    atomic_fetch_add_explicit(&submits, 1, memory_order_relaxed);
    return real_submit(context, count, blocks);
}

int io_getevents(io_context_t context, long least, long most, struct io_event* list,
                 struct timespec* patience)
{
    const int result = real_reap(context, least, most, list, patience);
    atomic_fetch_add_explicit(&reaps, 1, memory_order_relaxed);
    if (result > 0) {
        const long before = atomic_fetch_add(&events, result);
        if (before < expected && before + result >= expected)
            report();
    }
    return result;
}

static void count_allocation(void)
{
    if (atomic_load_explicit(&started, memory_order_relaxed))
        atomic_fetch_add_explicit(&allocations, 1, memory_order_relaxed);
}

void* malloc(size_t size)
{
    count_allocation();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    count_allocation();
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size)
{
    count_allocation();
    return __libc_realloc(memory, size);
}

void* memalign(size_t alignment, size_t size)
{
    count_allocation();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size)
{
    void* const result = memalign(alignment, size);
    if (!result)
        return ENOMEM;
    *memory = result;
    return 0;
}
