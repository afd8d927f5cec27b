#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/GtlExtents3D.h"
#include "vakdtm/services/geometry/GtlLine.h"
#include "vakdtm/services/geometry/GtlPoint.h"

namespace vak::GTL {

/// A sequence of points, joined by straight lines, that grows and shrinks at both ends in constant time.
///
/// A value: copies share the points until one of them is written to, and only then are they copied. `T` is
/// `Point2D<double>` or `Point3D<double>`. An index goes from 0 to below `NumPoints` and isn't checked.
///
/// The extents of the points are kept beside them. A point taken from the edge in x or y makes them unknown, to be
/// worked out when next asked for; one that was the highest or lowest, but within the edges, leaves them as they were.
///
/// Each object belongs to one thread at a time, asking for extents included; objects that share points may belong to
/// several.
template <typename T>
class Polyline {
 public:
  Polyline() = default;
  /// Takes points over as they are.
  explicit Polyline(std::vector<T> points);
  Polyline(const Polyline&) = default;
  Polyline(Polyline&& other) noexcept
      : points_(std::move(other.points_)), extents_(std::exchange(other.extents_, Extents3D<double>())) {}
  Polyline& operator=(const Polyline&) = default;
  Polyline& operator=(Polyline&& other) noexcept {
    points_ = std::move(other.points_);
    extents_ = std::exchange(other.extents_, Extents3D<double>());
    return *this;
  }
  virtual ~Polyline() = default;

  virtual const T& operator[](int index) const { return points_->At(static_cast<std::size_t>(index)); }
  virtual void Replace(int index, const T& point);
  virtual int NumPoints() const { return points_ ? static_cast<int>(points_->count) : 0; }
  /// How many of the lines are curved: none.
  virtual int NumCurves() const { return 0; }
  /// Shows every point in order, to be changed at will, and works the extents out anew.
  virtual void Apply(const std::function<void(T&)>& change);
  /// Widens extents to hold this polyline; points without z are at 0. No points change nothing.
  virtual void AddExtents(Extents3D<double>& extents) const;
  /// The line to the next point. @param index  below `NumPoints` - 1.
  virtual Line GetLine(int index) const { return {In3D((*this)[index]), In3D((*this)[index + 1])}; }
  /// Whether the last point equals the first; not without points.
  virtual bool IsClosed() const { return NumPoints() > 0 && (*this)[0] == (*this)[NumPoints() - 1]; }
  /// The lengths of the lines, added from the first to the last. @param squared  adds up their squares instead.
  virtual double Length(bool squared) const;

  bool IsEmpty() const { return NumPoints() == 0; }
  /// Whether the points are the other's, not only like them.
  bool SharesPoints(const Polyline& other) const { return points_ && points_ == other.points_; }

  void AddFront(const T& point);
  void AddBack(const T& point);
  /// Of a polyline with points, like the next.
  void RemoveFront();
  void RemoveBack();
  /// Inserts all points of another polyline, or of this one, before the point at the index.
  /// @param index  up to `NumPoints`, which adds them at the end.
  void Insert(int index, const Polyline& other);
  void Clear() { *this = Polyline(); }

 private:
  /// A ring of slots, of which `count` from `head` on are in use.
  struct Ring {
    std::vector<T> slots;
    std::size_t head = 0;
    std::size_t count = 0;

    std::size_t Slot(std::size_t index) const {
      const std::size_t slot = head + index;
      return slot < slots.size() ? slot : slot - slots.size();
    }
    const T& At(std::size_t index) const { return slots[Slot(index)]; }
    T& At(std::size_t index) { return slots[Slot(index)]; }
    void MakeRoom(std::size_t added);
  };

  /// Shares a ring with its copies.
  class SharedRing {
   public:
    SharedRing() = default;
    SharedRing(const SharedRing& other) : body_(other.body_) {
      if (body_) body_->owners.fetch_add(1, std::memory_order_relaxed);
    }
    SharedRing(SharedRing&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
    SharedRing& operator=(SharedRing other) noexcept {
      std::swap(body_, other.body_);
      return *this;
    }
    ~SharedRing() {
      if (body_ && body_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete body_;
    }

    explicit operator bool() const { return body_ != nullptr; }
    bool operator==(const SharedRing& other) const { return body_ == other.body_; }
    const Ring* operator->() const { return &body_->ring; }

    /// The ring, to be changed: nobody else's. Acquires what a former owner on another thread did before it let go.
    Ring& Own() {
      if (!body_) {
        body_ = new Body;
      } else if (body_->owners.load(std::memory_order_acquire) > 1) {
        SharedRing copy;
        copy.body_ = new Body(body_->ring);
        std::swap(body_, copy.body_);
      }
      return body_->ring;
    }

   private:
    struct Body {
      Body() = default;
      explicit Body(Ring other) : ring(std::move(other)) {}
      Ring ring;
      std::atomic<int> owners{1};
    };

    Body* body_ = nullptr;  // owned together with the copies
  };

  static Point3D<double> In3D(const Point2D<double>& point) { return Point3D<double>(point); }
  static Point3D<double> In3D(const Point3D<double>& point) { return point; }

  void Widen(const T& point);
  void ForgetExtentsWith(const T& point);
  /// A point that has a height but no place in the plane leaves its height behind when it is removed.
  void ForgetExtentsIfEmpty() {
    if (IsEmpty()) extents_.Reset();
  }
  void FindExtents() const;

  SharedRing points_;  // null: no points
  mutable Extents3D<double> extents_;
};

template <typename T>
Polyline<T>::Polyline(std::vector<T> points) {
  if (points.empty()) return;
  Ring& ring = points_.Own();
  ring.count = points.size();
  ring.slots = std::move(points);
}

template <typename T>
void Polyline<T>::Ring::MakeRoom(std::size_t added) {
  if (count + added <= slots.size()) return;
  std::vector<T> wider(std::max(count + added, 2 * slots.size()));
  for (std::size_t i = 0; i < count; ++i) wider[i] = At(i);
  slots = std::move(wider);
  head = 0;
}

/// For a point that comes in. What isn't known yet stays so, unless it is the first point.
template <typename T>
void Polyline<T>::Widen(const T& point) {
  ForgetExtentsIfEmpty();
  if (extents_.IsValid() || IsEmpty()) extents_.Update(In3D(point));
}

/// For a point that goes.
template <typename T>
void Polyline<T>::ForgetExtentsWith(const T& point) {
  const bool onEdge = point.x == extents_.MinX() || point.x == extents_.MaxX() || point.y == extents_.MinY() ||
                      point.y == extents_.MaxY();
  if (onEdge) extents_.Reset();
}

template <typename T>
void Polyline<T>::FindExtents() const {
  extents_.Reset();
  for (int i = 0; i < NumPoints(); ++i) extents_.Update(In3D((*this)[i]));
}

template <typename T>
void Polyline<T>::Replace(int index, const T& point) {
  const T added = point;  // may be one of those that are about to move
  T& place = points_.Own().At(static_cast<std::size_t>(index));
  ForgetExtentsWith(place);
  place = added;
  Widen(added);
}

template <typename T>
void Polyline<T>::Apply(const std::function<void(T&)>& change) {
  if (IsEmpty()) return;
  Ring& points = points_.Own();
  for (std::size_t i = 0; i < points.count; ++i) change(points.At(i));
  FindExtents();
}

template <typename T>
void Polyline<T>::AddExtents(Extents3D<double>& extents) const {
  if (!extents_.IsValid()) FindExtents();
  extents.Update(extents_);
}

template <typename T>
double Polyline<T>::Length(bool squared) const {
  double sum = 0.0;
  for (int i = 0; i + 1 < NumPoints(); ++i) {
    const Line line = GetLine(i);
    const double dx = line.end.x - line.start.x;
    const double dy = line.end.y - line.start.y;
    const double dz = line.end.z - line.start.z;
    const double square = dx * dx + dy * dy + dz * dz;
    sum += squared ? square : std::sqrt(square);
  }
  return sum;
}

template <typename T>
void Polyline<T>::AddFront(const T& point) {
  const T added = point;
  Widen(added);
  Ring& points = points_.Own();
  points.MakeRoom(1);
  points.head = (points.head == 0 ? points.slots.size() : points.head) - 1;
  ++points.count;
  points.At(0) = added;
}

template <typename T>
void Polyline<T>::AddBack(const T& point) {
  const T added = point;
  Widen(added);
  Ring& points = points_.Own();
  points.MakeRoom(1);
  ++points.count;
  points.At(points.count - 1) = added;
}

template <typename T>
void Polyline<T>::RemoveFront() {
  Ring& points = points_.Own();
  ForgetExtentsWith(points.At(0));
  points.head = points.Slot(1);
  --points.count;
}

template <typename T>
void Polyline<T>::RemoveBack() {
  Ring& points = points_.Own();
  ForgetExtentsWith(points.At(points.count - 1));
  --points.count;
}

template <typename T>
void Polyline<T>::Insert(int index, const Polyline& other) {
  if (other.IsEmpty()) return;
  const SharedRing source = other.points_;  // keeps them as they are, be they this one's own
  ForgetExtentsIfEmpty();
  if (extents_.IsValid() || IsEmpty()) other.AddExtents(extents_);
  Ring& points = points_.Own();
  const auto place = static_cast<std::size_t>(index);
  const std::size_t behind = points.count - place;
  points.MakeRoom(source->count);
  points.count += source->count;
  for (std::size_t i = behind; i > 0; --i) points.At(place + source->count + i - 1) = points.At(place + i - 1);
  for (std::size_t i = 0; i < source->count; ++i) points.At(place + i) = source->At(i);
}

}  // namespace vak::GTL
