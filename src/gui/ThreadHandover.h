#pragma once

// Every hand-over between the GUI thread and the engine thread: a job to the engine, a result or
// a dialog request back to the windows. Each is a function posted to an Inbox, an object that
// lives on the receiving thread and runs what arrives there, in order.
//
// Why not plain queued calls and signals: Qt copies their arguments and passes them between the
// threads under its own locks, and the system's Qt is not built with ThreadSanitizer, so those
// locks are invisible to it and every value handed over would be reported as a race. Here the
// event is built completely by our code, then marked as released (posting()) and posted; every
// event Qt delivers first acquires what was released. That is exactly the ordering Qt's queues
// give, made visible. Without ThreadSanitizer the marks compile to nothing.

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <functional>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define VARIMO_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VARIMO_TSAN 1
#endif
#endif

#ifdef VARIMO_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace handover {

#ifdef VARIMO_TSAN
inline char g_queue;

// Before handing data to the other thread.
inline void posting()
{
    __tsan_release(&g_queue);
}
// After waiting for the other thread by other means than an event (QThread::wait).
inline void received()
{
    __tsan_acquire(&g_queue);
}
// Once per program: every event delivered acquires what was posted before it.
inline void installReceiver()
{
    static const bool installed =
        QInternal::registerCallback(QInternal::EventNotifyCallback, [](void **) {
            __tsan_acquire(&g_queue);
            return false; // deliver the event as usual
        });
    Q_UNUSED(installed)
}
#else
inline void posting() { }
inline void received() { }
inline void installReceiver() { }
#endif

// Runs the functions posted to it on the thread it lives on, in the order they were posted.
// post() may be called from any thread.
class Inbox final : public QObject
{
public:
    explicit Inbox(QObject *parent)
        : QObject(parent)
    {
        installReceiver();
    }

    void post(std::function<void()> fn)
    {
        auto *call = new Call(std::move(fn));
        posting();
        QCoreApplication::postEvent(this, call);
    }

protected:
    bool event(QEvent *e) override
    {
        if (e->type() != kCallType)
            return QObject::event(e);
        static_cast<Call *>(e)->fn();
        return true;
    }

private:
    static inline const QEvent::Type kCallType = QEvent::Type(QEvent::registerEventType());

    struct Call : QEvent
    {
        explicit Call(std::function<void()> f)
            : QEvent(kCallType)
            , fn(std::move(f))
        {
        }
        std::function<void()> fn;
    };
};

} // namespace handover
