#include <varnox/mutex.h>

#include <system_error>

namespace {

/// The attributes of one mutex, for as long as it takes to make it.
class tcAttributes {
public:
    tcAttributes() { check(pthread_mutexattr_init(&m_attributes), "pthread_mutexattr_init"); }
    tcAttributes(const tcAttributes&) = delete;
    tcAttributes& operator=(const tcAttributes&) = delete;
    ~tcAttributes() { pthread_mutexattr_destroy(&m_attributes); }

    void setType(int type) {
        check(pthread_mutexattr_settype(&m_attributes, type), "pthread_mutexattr_settype");
    }
    void setRobust() {
        check(pthread_mutexattr_setrobust(&m_attributes, PTHREAD_MUTEX_ROBUST),
              "pthread_mutexattr_setrobust");
    }
    void makeMutex(pthread_mutex_t& mutex) const {
        check(pthread_mutex_init(&mutex, &m_attributes), "pthread_mutex_init");
    }

private:
    static void check(int error, const char* operation) {
        if (error != 0)
            throw std::system_error(error, std::generic_category(), operation);
    }

    pthread_mutexattr_t m_attributes;
};

} // namespace

tcMutex::tcMutex(bool recursive) {
    tcAttributes attributes;
    // A thread that locks a mutex of the other kind twice is told so instead of standing still.
    attributes.setType(recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK);
    attributes.setRobust();
    attributes.makeMutex(m_mutex);
}

tcMutex::~tcMutex() {
    pthread_mutex_destroy(&m_mutex);
}

int tcMutex::lock() {
    return pthread_mutex_lock(&m_mutex);
}

int tcMutex::unlock() {
    return pthread_mutex_unlock(&m_mutex);
}

int tcMutex::consistent() {
    return pthread_mutex_consistent(&m_mutex);
}
