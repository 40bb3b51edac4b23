// Only for ThreadSanitizer. It cannot see inside the distribution's Qt, which is built without it:
// what one thread hands over to another by way of a thread pool, an event queue or a future looks
// like a race to it. The doors that this project uses are therefore taken over here, in the test
// program, and tell it about each handover. Nothing that our own code does is kept from it.

#include <QFutureInterface>
#include <QMetaObject>
#include <QRunnable>
#include <QThreadPool>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
}

namespace {

template <typename Function> Function *realFunction(const char *mangledName)
{
    void *address = dlsym(RTLD_NEXT, mangledName);
    if (!address)
        qFatal("Qt has no %s", mangledName);
    return reinterpret_cast<Function *>(address);
}

/// Runs another runnable in its place.
class HandedRunnable : public QRunnable
{
public:
    explicit HandedRunnable(QRunnable *inner)
        : m_inner(inner)
    {
        __tsan_release(this);
    }

    void run() override
    {
        __tsan_acquire(this);
        const bool mustDelete = m_inner->autoDelete(); // as the pool asks, before it runs
        m_inner->run();
        if (mustDelete)
            delete m_inner;
    }

private:
    QRunnable *m_inner;
};

/// Calls another slot object in its place.
class HandedSlot : public QtPrivate::QSlotObjectBase
{
public:
    explicit HandedSlot(QSlotObjectBase *inner)
        : QSlotObjectBase(&HandedSlot::impl)
        , m_inner(inner)
    {
        __tsan_release(this);
    }

private:
    static void impl(int which, QSlotObjectBase *self, QObject *receiver, void **arguments, bool *)
    {
        __tsan_acquire(self);
        auto *slot = static_cast<HandedSlot *>(self);
        if (which == Call) {
            slot->m_inner->call(receiver, arguments);
            __tsan_release(self); // whoever lets go of it last may be the sender
        } else if (which == Destroy) {
            slot->m_inner->destroyIfLastRef();
            delete slot;
        }
    }

    QSlotObjectBase *m_inner;
};

} // namespace

void QThreadPool::start(QRunnable *runnable, int priority)
{
    static auto *const real =
        realFunction<void(QThreadPool *, QRunnable *, int)>("_ZN11QThreadPool5startEP9QRunnablei");
    auto *const handed = new HandedRunnable(runnable);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__); // the pool's own queue
    real(this, handed, priority);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
}

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot,
                                   Qt::ConnectionType type, void *result)
{
    static auto *const real =
        realFunction<bool(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *)>(
            "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14Connec"
            "tionTypeEPv");
    return real(object, new HandedSlot(slot), type, result);
}

void QFutureInterfaceBase::reportFinished()
{
    static auto *const real =
        realFunction<void(QFutureInterfaceBase *)>("_ZN20QFutureInterfaceBase14reportFinishedEv");
    __tsan_release(&mutex()); // one for all who share the future
    real(this);
}

void QFutureInterfaceBase::waitForResult(int index)
{
    static auto *const real = realFunction<void(QFutureInterfaceBase *, int)>(
        "_ZN20QFutureInterfaceBase13waitForResultEi");
    real(this, index);
    __tsan_acquire(&mutex());
}

bool QFutureInterfaceBase::derefT() const noexcept
{
    static auto *const real =
        realFunction<bool(const QFutureInterfaceBase *)>("_ZNK20QFutureInterfaceBase6derefTEv");
    __tsan_release(&mutex()); // whoever lets go of it last deletes the results
    const bool shared = real(this);
    if (!shared)
        __tsan_acquire(&mutex());
    return shared;
}
